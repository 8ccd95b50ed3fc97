#include "api/dn_image_adapter.h"

#include "base/ex.h"
#include "base/qtless/qobject.h"

using qtless::QObject;

DnImageAdapter::DnImageAdapter(void* hostContext, DnGetScanlineCallback getCallback,
                               DnPutScanlineCallback putCallback, int width, int height)
    : hostContext_(hostContext), get_(getCallback), put_(putCallback), width_(width), height_(height)
{
}

void DnImageAdapter::getScanline(int y, int xStart, int xEnd, unsigned short* pixels)
{
    // A missing callback is a caller's mistake; report it rather than jump
    // through a null pointer.
    if (!get_)
        throw JEx(QObject::tr("No host callback to read the image"));
    get_(hostContext_, y, xStart, xEnd, pixels);
}

void DnImageAdapter::putScanline(int y, int xStart, int xEnd, const unsigned short* pixels)
{
    if (!put_)
        throw JEx(QObject::tr("No host callback to write the image"));
    // The host's callback takes a non-const pointer; it only reads the pixels.
    put_(hostContext_, y, xStart, xEnd, const_cast<unsigned short*>(pixels));
}
