#include "color/pixel_rect.h"

#include <cstdio>
#include <vector>

#include "base/cpu_info.h"
#include "color/lab_coord.h"
#include "color/pixel.h"
#include "color/pixel_rect_simd.h"

JPixelRect::JPixelRect(int channels) : width(0), height(0), planes(new float*[channels]), channels(channels)
{
    for (int c = 0; c < channels; c++)
        planes[c] = nullptr;
}

JPixelRect::~JPixelRect()
{
    for (int c = 0; c < channels; c++)
        delete[] planes[c];
    delete[] planes;
}

void JPixelRect::setDimensions(int w, int h)
{
    if (w == width && h == height)
        return;
    const size_t n = static_cast<size_t>(w) * static_cast<size_t>(h);
    if (n > capacity_ || planes[0] == nullptr) {
        release();
        for (int c = 0; c < channels; c++)
            planes[c] = new float[n];
        capacity_ = n;
    }
    width = w;
    height = h;
}

void JPixelRect::release()
{
    for (int c = 0; c < channels; c++) {
        delete[] planes[c];
        planes[c] = nullptr;
    }
    capacity_ = 0;
    width = 0;
    height = 0;
}

void JPixelRect::loadYCrCb(JImageAdapter* image, JRect<int>& r)
{
    setDimensions(r.width(), r.height());
    printLoadLine(r);
    readYCrCb(image, r);
}

void JPixelRect::printLoadLine(const JRect<int>& r)
{
    std::printf("w: %d h: %d l: %d r: %d t: %d b: %d\n", r.width(), r.height(), r.left, r.right, r.top, r.bottom);
}

void JPixelRect::readYCrCb(JImageAdapter* image, const JRect<int>& r)
{
    setDimensions(r.width(), r.height());
    std::vector<JPixel> row(static_cast<size_t>(width > 0 ? width : 0));
    for (int y = r.top; y < r.bottom; y++) {
        image->getScanline(y, r.left, r.right - 1, reinterpret_cast<unsigned short*>(row.data()));
        size_t base = static_cast<size_t>(y - r.top) * static_cast<size_t>(width);
        int x = 0;
        if (JCPUInfo::useSIMD(JCPUInfo::AVX512))
            x = pixel_rect_simd::toYCrCbAVX512(row.data(), planes[0] + base, planes[1] + base, planes[2] + base, width);
        else if (JCPUInfo::useSIMD(JCPUInfo::AVX2))
            x = pixel_rect_simd::toYCrCbAVX2(row.data(), planes[0] + base, planes[1] + base, planes[2] + base, width);
        for (; x < width; x++)
            row[x].toYCrCb(planes[0][base + x], planes[1][base + x], planes[2][base + x]);
    }
}

void JPixelRect::loadLab(JImageAdapter* image, JRect<int>& r)
{
    setDimensions(r.width(), r.height());
    std::vector<JPixel> row(static_cast<size_t>(width > 0 ? width : 0));
    for (int y = r.top; y < r.bottom; y++) {
        image->getScanline(y, r.left, r.right - 1, reinterpret_cast<unsigned short*>(row.data()));
        size_t base = static_cast<size_t>(y - r.top) * static_cast<size_t>(width);
        for (int x = 0; x < width; x++) {
            JLabCoord lab;
            lab.fromPixel(row[x]);
            planes[0][base + x] = lab.L;
            planes[1][base + x] = lab.a;
            planes[2][base + x] = lab.b;
        }
    }
}

float JPixelRect::mean(float* plane) const
{
    size_t n = static_cast<size_t>(width) * static_cast<size_t>(height);
    double sum = 0.0;
    for (size_t i = 0; i < n; i++)
        sum += plane[i];
    return static_cast<float>(sum) / static_cast<float>(width * height);
}
