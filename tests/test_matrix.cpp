// Template matching, matrix inverse and solving, the Fourier transform and extreme values.
#include "support/images.h"

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include <functional>

using namespace VEXA;

namespace {

bool equal(const cv::Mat& a, const cv::Mat& b)
{
    return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0;
}

VImage floats(int w, int h, const cv::Mat& values, QRect roi)
{
    VImage image = makeImage(w, h, GrayScale, Channel32f, 3);
    image.setRoi(roi);
    values.convertTo(roiMat(image), CV_32F);
    return image;
}

VImage matrix(int rows, int cols, std::initializer_list<float> values)
{
    return floats(cols + 2, rows + 1, cv::Mat(std::vector<float>(values)).reshape(1, rows), QRect(1, 1, cols, rows));
}

// A blurred random texture, dimmed outside `bright` so that even the plain correlation peaks there.
VImage texture(Format format, Channel channel, QRect bright)
{
    VImage image = makeImage(64, 48, format, Channel8u, 5);
    cv::Mat m = roiMat(image);
    cv::GaussianBlur(m, m, {5, 5}, 0);
    const cv::Mat kept = m(cv::Rect(bright.x(), bright.y(), bright.width(), bright.height())).clone();
    m.convertTo(m, -1, 0.3);
    kept.copyTo(m(cv::Rect(bright.x(), bright.y(), bright.width(), bright.height())));
    return channel == Channel8u ? image : image.convert(format, channel);
}

} // namespace

TEST(MatchTemplate, FindsTheTemplateAndScoresAsOpenCv)
{
    const QRect cut(21, 13, 12, 9), roi(3, 2, 55, 40);
    for (Format format : {GrayScale, BGR})
        for (Channel channel : {Channel8u, Channel32f})
            for (int method = 0; method <= 5; ++method) {
                SCOPED_TRACE(testing::Message() << format << " " << channel << " method " << method);
                const VImage image = texture(format, channel, cut);
                const VImage src = withRoi(image, roi), templ = withRoi(image, cut);
                VImage result;
                QPoint best;
                double score = 0;
                ASSERT_TRUE(matchTemplate(src, templ, &result, TemplateMatchMethod(method), &best, &score));
                EXPECT_EQ(best, cut.topLeft() - roi.topLeft());
                cv::Mat expected;
                cv::matchTemplate(roiMat(src), roiMat(templ), expected, method);
                EXPECT_TRUE(equal(roiMat(result), expected));
                EXPECT_EQ(score, double(expected.at<float>(best.y(), best.x())));
            }
}

TEST(Matrix, InverseTimesMatrixIsIdentity)
{
    // Symmetric and positive definite, so that every decomposition applies.
    const VImage a = matrix(4, 4, {5, 1, 0, 2, 1, 4, 1, 0, 0, 1, 3, 1, 2, 0, 1, 6});
    for (MatrixDecomposition method : {DecompositionLU, DecompositionSVD, DecompositionCholesky, DecompositionQR}) {
        SCOPED_TRACE(method);
        VImage inverse;
        ASSERT_TRUE(invertMatrix(a, &inverse, method));
        EXPECT_LE(cv::norm(roiMat(a) * roiMat(inverse), cv::Mat::eye(4, 4, CV_32F), cv::NORM_INF), 1e-5);
    }
    // A wide matrix has a pseudo-inverse only, of the transposed shape.
    const VImage wide = matrix(2, 3, {1, 2, 3, 4, 5, 7});
    VImage pseudo;
    ASSERT_TRUE(invertMatrix(wide, &pseudo, DecompositionSVD));
    cv::Mat expected;
    cv::invert(roiMat(wide), expected, cv::DECOMP_SVD);
    EXPECT_TRUE(equal(roiMat(pseudo), expected));
}

TEST(Matrix, SingularFailsAndLeavesTheDestination)
{
    const VImage singular = matrix(3, 3, {1, 2, 3, 2, 4, 6, 0, 1, 1});
    for (MatrixDecomposition method : {DecompositionLU, DecompositionCholesky, DecompositionQR}) {
        SCOPED_TRACE(method);
        VImage dst = floats(3, 3, cv::Mat(3, 3, CV_32F, cv::Scalar(7)), QRect(0, 0, 3, 3));
        const VStatus status = invertMatrix(singular, &dst, method);
        EXPECT_TRUE(status.message().contains("Matrix is singular")) << status.message().toStdString();
        EXPECT_EQ(cv::countNonZero(roiMat(dst) != 7), 0);
        VImage x;
        EXPECT_FALSE(solveLinear(singular, matrix(3, 1, {1, 2, 3}), &x, method));
    }
}

TEST(Matrix, SolveEqualsOpenCv)
{
    const VImage square = matrix(3, 3, {4, 1, 2, 1, 5, 1, 2, 1, 6}), rhs = matrix(3, 2, {1, 2, 3, 4, 5, 6});
    const VImage tall = matrix(4, 2, {1, 2, 3, 5, 4, 1, 0, 2}), tallRhs = matrix(4, 1, {1, 0, 2, 3});
    for (MatrixDecomposition method : {DecompositionLU, DecompositionSVD, DecompositionCholesky, DecompositionQR})
        for (const auto& [a, b] : {std::pair(square, rhs), std::pair(tall, tallRhs)}) {
            if (a.roi().height() != a.roi().width() && (method == DecompositionLU || method == DecompositionCholesky))
                continue;
            SCOPED_TRACE(testing::Message() << method << " rows " << a.roi().height());
            VImage x;
            ASSERT_TRUE(solveLinear(a, b, &x, method));
            cv::Mat expected;
            cv::solve(roiMat(a), roiMat(b), expected, method);
            EXPECT_TRUE(equal(roiMat(x), expected));
        }
}

TEST(Dft, EqualsOpenCvAndInverts)
{
    for (Channel channel : {Channel8u, Channel16u, Channel16s, Channel32f}) {
        SCOPED_TRACE(channel);
        VImage src = withRoi(makeImage(40, 25, GrayScale, Channel8u, 2).convert(GrayScale, channel), {2, 1, 37, 23});
        VImage real, imaginary, back;
        ASSERT_TRUE(dftImage(src, &real, &imaginary));
        cv::Mat values, spectrum, parts[2];
        roiMat(src).convertTo(values, CV_32F);
        cv::dft(values, spectrum, cv::DFT_COMPLEX_OUTPUT);
        cv::split(spectrum, parts);
        EXPECT_TRUE(equal(roiMat(real), parts[0]));
        EXPECT_TRUE(equal(roiMat(imaginary), parts[1]));
        ASSERT_TRUE(inverseDftImage(real, imaginary, &back));
        EXPECT_LE(cv::norm(roiMat(back), values, cv::NORM_INF), 1e-4);
    }
}

TEST(MinMax, EqualsOpenCvWithAndWithoutMask)
{
    VImage mask = makeImage(30, 20, GrayScale, Channel8u, 4);
    const cv::Mat selected = roiMat(mask) > 200;
    selected.copyTo(roiMat(mask));
    for (Channel channel : {Channel8u, Channel8s, Channel16u, Channel16s, Channel32s, Channel32f})
        for (const VImage& m : {VImage(), mask}) {
            SCOPED_TRACE(testing::Message() << channel << (m.isEmpty() ? " all" : " masked"));
            const VImage src = withRoi(makeImage(34, 23, GrayScale, channel, 6), {3, 2, 30, 20});
            double min = 0, max = 0, emin = 0, emax = 0;
            QPoint minAt, maxAt;
            cv::Point eMinAt, eMaxAt;
            ASSERT_TRUE(getMinMax(src, &min, &max, &minAt, &maxAt, m));
            cv::minMaxLoc(roiMat(src), &emin, &emax, &eMinAt, &eMaxAt, m.isEmpty() ? cv::Mat() : roiMat(m));
            EXPECT_EQ(min, emin);
            EXPECT_EQ(max, emax);
            EXPECT_EQ(minAt, QPoint(eMinAt.x, eMinAt.y));
            EXPECT_EQ(maxAt, QPoint(eMaxAt.x, eMaxAt.y));
        }
}

TEST(MatrixFamily, FailuresAreStatuses)
{
    const VImage gray = texture(GrayScale, Channel8u, {0, 0, 8, 8}), m = matrix(2, 2, {1, 2, 3, 4});
    VImage out, small = makeImage(3, 3, GrayScale, Channel32f), nan = matrix(1, 1, {NAN});
    VImage none = makeImage(64, 48, GrayScale, Channel8u);
    roiMat(none).setTo(0);
    double v = 0;
    const std::vector<std::tuple<const char*, std::function<VStatus()>, const char*>> cases = {
        {"bad status", [&] { return matchTemplate(failedImage(gray), gray, &out, TemplateSqDiff); }, "Bad status of image!"},
        {"empty", [&] { return getMinMax(VImage(), &v, &v); }, "Empty source image!"},
        {"unlisted pair", [&] { return dftImage(makeImage(4, 4, GrayScale, Channel32s), &out, &small); }, "Can not find template"},
        {"pairs differ", [&] { return matchTemplate(gray, gray.convert(GrayScale, Channel32f), &out, TemplateCCorr); }, "Can not find template"},
        {"not a matrix", [&] { return invertMatrix(gray, &out, DecompositionLU); }, "Can not find template"},
        {"wrong result size", [&] { return matchTemplate(gray, withRoi(gray, {0, 0, 4, 4}), &small, TemplateCCorr); }, "Image sizes differ"},
        {"wrong inverse size", [&] { return invertMatrix(m, &small, DecompositionLU); }, "Image sizes differ"},
        {"rows differ", [&] { return solveLinear(m, matrix(3, 1, {1, 2, 3}), &out, DecompositionSVD); }, "Image sizes differ"},
        {"mask size", [&] { return getMinMax(gray, &v, &v, nullptr, nullptr, small.convert(GrayScale, Channel8u)); }, "Image sizes differ"},
        {"null result", [&] { return matchTemplate(gray, gray, nullptr, TemplateCCorr); }, "Null pointer argument!"},
        {"null max", [&] { return getMinMax(gray, &v, nullptr); }, "Null pointer argument!"},
        {"null part", [&] { return dftImage(gray, &out, nullptr); }, "Null pointer argument!"},
        {"one part", [&] { return dftImage(gray, &out, &out); }, "distinct images"},
        {"template too large", [&] { return matchTemplate(withRoi(gray, {0, 0, 4, 4}), gray, &out, TemplateCCorr); }, "larger"},
        {"method", [&] { return matchTemplate(gray, gray, &out, TemplateMatchMethod(6)); }, "Unknown"},
        {"decomposition", [&] { return invertMatrix(m, &out, MatrixDecomposition(2)); }, "Unknown"},
        {"not square", [&] { return invertMatrix(matrix(2, 3, {1, 2, 3, 4, 5, 6}), &out, DecompositionLU); }, "not square"},
        {"under-determined", [&] { return solveLinear(matrix(1, 2, {1, 2}), matrix(1, 1, {1}), &out, DecompositionQR); }, "Under-determined"},
        {"NaN", [&] { return invertMatrix(nan, &out, DecompositionSVD); }, "infinite or NaN"},
        {"mask of nothing", [&] { return getMinMax(gray, &v, &v, nullptr, nullptr, none); }, "Mask selects no pixel"},
    };
    for (const auto& [name, call, expected] : cases) {
        out = VImage();
        const VStatus status = call();
        EXPECT_FALSE(status) << name;
        EXPECT_TRUE(status.message().contains(expected)) << name << ": " << status.message().toStdString();
    }
}
