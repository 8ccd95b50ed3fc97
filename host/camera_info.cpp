#include "host/camera_info.h"

namespace murmex_host {

CameraInfo cameraFromExif(const ExifAccess& exif)
{
    CameraInfo info;
    info.maker = exif.text("Exif.Image.Make");
    info.model = exif.text("Exif.Image.Model");
    info.iso = exif.integer("Exif.Photo.ISOSpeedRatings");
    if (!info.iso)
        info.iso = exif.integer("Exif.Image.ISOSpeedRatings");
    info.shutterSpeed = exif.real("Exif.Photo.ExposureTime");
    info.exposureComp = exif.real("Exif.Photo.ExposureBiasValue");
    info.lightSource = exif.integer("Exif.Photo.LightSource");
    info.contrast = exif.integer("Exif.Photo.Contrast");
    info.sharpness = exif.integer("Exif.Photo.Sharpness");
    info.saturation = exif.integer("Exif.Photo.Saturation");
    // Colour space 1 is sRGB. Adobe RGB has no code of its own: cameras mark
    // it as 2, or as uncalibrated (0xFFFF) with the interoperability index
    // "R03". Anything else is left unnamed.
    if (const std::optional<int> cs = exif.integer("Exif.Photo.ColorSpace")) {
        const std::optional<std::string> interop = exif.text("Exif.Iop.InteroperabilityIndex");
        if (*cs == 1)
            info.colorSpace = "sRGB";
        else if (*cs == 2 || (*cs == 0xffff && interop && *interop == "R03"))
            info.colorSpace = "Adobe RGB";
    }
    return info;
}

}  // namespace murmex_host
