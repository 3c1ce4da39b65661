// VImage::fromByteArray on any bytes: a failed status or an image that packs back to an equal one.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzzSetUp();
    const VImage image = VImage::fromByteArray(bytesOf(data, size));
    if (!image.status()) {
        FUZZ_CHECK(image.isEmpty());
        return 0;
    }
    const VImage again = VImage::fromByteArray(image.toByteArray(VEXA::CompressionFastest));
    FUZZ_CHECK(again.status());
    FUZZ_CHECK(again.isEqual(image));
    // A roi beyond the int range is clamped once; from then on it travels unchanged.
    const VImage third = VImage::fromByteArray(again.toByteArray(VEXA::CompressionNone));
    FUZZ_CHECK(third.roi() == again.roi());
    return 0;
}
