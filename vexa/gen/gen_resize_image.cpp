#include <vexa/gen/gen_resize_image.h>

#include <vexa/imp/image_transform.h>

#include <opencv2/imgproc.hpp>

namespace VEXA {

VStatus warpPerspectiveImage(VImage src, VImage* dst, const VTransformPerspective& t)
{
    return guarded(VEXA_CALL_SITE, [&] {
        checkSource(src);
        VImage& d = checkExistingDestination(dst);
        return visitPixel(WarpPixels{}, src.format(), src.channelType(), [&](auto) {
            if (d.format() != src.format())
                throwUnsupported();
            cv::Mat out = asCvMat(d);
            const cv::Mat s = readableSource(asCvMat(src), out);
            requireOpenCv(s.type() == out.type(), "src.type() == dst.type()", "cvWarpPerspective");
            VTransformPerspective matrix = t;
            const cv::Mat m = matrix.createCvMat();
            writeInto(out, [&](cv::Mat& o) {
                cv::warpPerspective(s, o, m, o.size(), cv::INTER_LINEAR, cv::BORDER_TRANSPARENT);
            });
            return VStatus::Ok;
        });
    });
}

} // namespace VEXA
