// Template matching, matrix inverse and solving, the Fourier transform and extreme values.
#include "support/images.h"

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include <functional>

using namespace VEXA;

namespace {

// Held in a roi, with random bytes around it.
VImage matrix(int rows, int cols, std::vector<float> values)
{
    const VImage image = withRoi(makeImage(cols + 2, rows + 1, GrayScale, Channel32f, 3), {1, 1, cols, rows});
    cv::Mat(values).reshape(1, rows).copyTo(roiMat(image));
    return image;
}

// A blurred random texture, dimmed outside `bright` so that even the plain correlation peaks there.
VImage texture(Format format, Channel channel, QRect bright)
{
    VImage image = makeImage(64, 48, format, Channel8u, 5);
    cv::Mat m = roiMat(image), area = m(cv::Rect(bright.x(), bright.y(), bright.width(), bright.height()));
    cv::GaussianBlur(m, m, {5, 5}, 0);
    const cv::Mat kept = area.clone();
    m.convertTo(m, -1, 0.3);
    kept.copyTo(area);
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
                QPoint best(-1, -1);
                double score = 0;
                ASSERT_TRUE(matchTemplate(src, templ, &result, TemplateMatchMethod(method), &best, &score));
                EXPECT_EQ(best, cut.topLeft() - roi.topLeft());
                cv::Mat expected;
                cv::matchTemplate(roiMat(src), roiMat(templ), expected, method);
                EXPECT_EQ(cv::norm(roiMat(result), expected, cv::NORM_INF), 0);
                EXPECT_EQ(score, double(expected.at<float>(best.y(), best.x())));
            }
}

TEST(Matrix, InverseTimesMatrixIsIdentity)
{
    // Symmetric and positive definite, so that every decomposition applies; the wide one has a right
    // pseudo-inverse only, of the transposed shape.
    const VImage a = matrix(4, 4, {5, 1, 0, 2, 1, 4, 1, 0, 0, 1, 3, 1, 2, 0, 1, 6}), wide = matrix(2, 3, {1, 2, 3, 4, 5, 7});
    for (const auto& [m, method] : {std::pair(a, DecompositionLU), std::pair(a, DecompositionSVD),
                                    std::pair(a, DecompositionCholesky), std::pair(a, DecompositionQR),
                                    std::pair(wide, DecompositionSVD)}) {
        SCOPED_TRACE(testing::Message() << method << " rows " << m.roi().height());
        VImage inverse;
        ASSERT_TRUE(invertMatrix(m, &inverse, method));
        ASSERT_EQ(inverse.roi().size(), m.roi().size().transposed());
        const int n = m.roi().height();
        EXPECT_LE(cv::norm(roiMat(m) * roiMat(inverse), cv::Mat::eye(n, n, CV_32F), cv::NORM_INF), 1e-5);
    }
}

TEST(Matrix, SingularFailsAndLeavesTheDestination)
{
    const VImage singular = matrix(3, 3, {1, 2, 3, 2, 4, 6, 0, 1, 1}), rhs = matrix(3, 1, {1, 2, 3});
    for (MatrixDecomposition method : {DecompositionLU, DecompositionCholesky, DecompositionQR}) {
        SCOPED_TRACE(method);
        VImage dst = matrix(3, 3, std::vector<float>(9, 7)), x;
        EXPECT_TRUE(invertMatrix(singular, &dst, method).message().contains("Matrix is singular"));
        EXPECT_EQ(cv::countNonZero(roiMat(dst) != 7), 0);
        EXPECT_TRUE(solveLinear(singular, rhs, &x, method).message().contains("Matrix is singular"));
        EXPECT_TRUE(x.isEmpty()) << "a destination the call made is taken back";
    }
}

TEST(Matrix, SolveEqualsOpenCv)
{
    const VImage square = matrix(3, 3, {4, 1, 2, 1, 5, 1, 2, 1, 6}), rhs = matrix(3, 2, {1, 2, 3, 4, 5, 6});
    const VImage tall = matrix(4, 2, {1, 2, 3, 5, 4, 1, 0, 2}), tallRhs = matrix(4, 1, {1, 0, 2, 3});
    // LU and Cholesky take square systems only.
    const std::vector<std::tuple<VImage, VImage, MatrixDecomposition>> systems = {
        {square, rhs, DecompositionLU}, {square, rhs, DecompositionCholesky}, {square, rhs, DecompositionQR},
        {square, rhs, DecompositionSVD}, {tall, tallRhs, DecompositionQR}, {tall, tallRhs, DecompositionSVD}};
    for (const auto& [a, b, method] : systems) {
        SCOPED_TRACE(testing::Message() << method << " rows " << a.roi().height());
        VImage x;
        ASSERT_TRUE(solveLinear(a, b, &x, method));
        cv::Mat expected;
        cv::solve(roiMat(a), roiMat(b), expected, method);
        EXPECT_EQ(cv::norm(roiMat(x), expected, cv::NORM_INF), 0);
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
        EXPECT_EQ(cv::norm(roiMat(real), parts[0], cv::NORM_INF), 0);
        EXPECT_EQ(cv::norm(roiMat(imaginary), parts[1], cv::NORM_INF), 0);
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
            double v[4] = {};
            QPoint minAt, maxAt;
            cv::Point at[2];
            ASSERT_TRUE(getMinMax(src, &v[0], &v[1], &minAt, &maxAt, m));
            cv::minMaxLoc(roiMat(src), &v[2], &v[3], &at[0], &at[1], m.isEmpty() ? cv::Mat() : roiMat(m));
            EXPECT_EQ(std::make_tuple(v[0], v[1], minAt, maxAt),
                      std::make_tuple(v[2], v[3], QPoint(at[0].x, at[0].y), QPoint(at[1].x, at[1].y)));
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
        {"wrong result size", [&] { return matchTemplate(gray, withRoi(gray, {0, 0, 4, 4}), &small, TemplateCCorr); }, "Image sizes differ"},
        {"rows differ", [&] { return solveLinear(m, matrix(3, 1, {1, 2, 3}), &out, DecompositionSVD); }, "Image sizes differ"},
        {"mask size", [&] { return getMinMax(gray, &v, &v, nullptr, nullptr, small.convert(GrayScale, Channel8u)); }, "Image sizes differ"},
        {"null result", [&] { return matchTemplate(gray, gray, nullptr, TemplateCCorr); }, "Null pointer argument!"},
        {"null max", [&] { return getMinMax(gray, &v, nullptr); }, "Null pointer argument!"},
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
