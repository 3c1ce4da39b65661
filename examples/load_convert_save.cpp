// Loading an image file, converting it and saving the result.
//
//   load_convert_save INPUT OUTPUT.png
//
// Loads INPUT (any format Qt reads), prints its size, layout and channel type, converts it to 8-bit gray
// with convertImage, which writes into a destination prepared with the wanted header, then to 16-bit gray
// as the same picture with convertScaled (8u 255 becomes 16u 65535), and saves that as a 16-bit PNG.
#include <vexa/Vexa.h>

#include <cstdio>

static void describe(const char* what, const VImage& image)
{
    std::printf("%s: %dx%d %s %s\n", what, image.width(), image.height(), VEXA::formatInfo(image.format()).name.c_str(),
                VEXA::channelInfo(image.channelType()).name.c_str());
}

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s INPUT OUTPUT.png\n", argv[0]);
        return 1;
    }
    VImage image;
    if (!image.load(QString::fromLocal8Bit(argv[1]))) {
        std::fprintf(stderr, "cannot load: %s\n", qPrintable(image.status().reason()));
        return 1;
    }
    describe("loaded", image);

    // convertImage never allocates: the destination's header says what to convert into.
    VImage gray = image.createCompatible(VEXA::GrayScale, VEXA::Channel8u);
    if (const VStatus status = VEXA::convertImage(image, &gray); !status) {
        std::fprintf(stderr, "cannot convert to gray: %s\n", qPrintable(status.reason()));
        return 1;
    }
    // The VImage members do the same in one line, and report a failure as an empty image.
    const VImage gray16 = gray.convertScaled(VEXA::GrayScale, VEXA::Channel16u);
    if (gray16.isEmpty()) {
        std::fprintf(stderr, "cannot convert to 16 bits: %s\n", qPrintable(gray16.status().reason()));
        return 1;
    }
    const int x = gray.width() / 2, y = gray.height() / 2;
    std::printf("centre pixel: 8u %g, 16u %g\n", gray.pixel(x, y).value(0).toDouble(),
                gray16.pixel(x, y).value(0).toDouble());

    if (!gray16.save(QString::fromLocal8Bit(argv[2]))) {
        std::fprintf(stderr, "cannot save: %s\n", qPrintable(gray16.status().reason()));
        return 1;
    }
    VImage saved;
    if (!saved.load(QString::fromLocal8Bit(argv[2]))) {
        std::fprintf(stderr, "cannot read back: %s\n", qPrintable(saved.status().reason()));
        return 1;
    }
    describe("saved", saved);
    return 0;
}
