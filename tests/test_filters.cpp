// Smoothing, sharpening, morphology, convolution and derivatives.
#include "support/images.h"
#include "support/pixel_lists.h"

#include <vexa/imp/kernels/math_image.h>
#include <vexa/imp/kernels/morph_image.h>
#include <vexa/imp/kernels/smooth_image.h>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <limits>

using namespace VEXA;

namespace {

// Random bytes, with floats kept to finite values -300..300 (the bilateral filter refuses others).
VImage testImage(int w, int h, Format f, Channel c, unsigned seed, Origin origin = OriginBottomLeft)
{
    VImage image = makeImage(w, h, f, c, seed, origin);
    if (c == Channel32f) {
        std::mt19937 random(seed);
        for (int y = 0; y < h; ++y) {
            auto* row = reinterpret_cast<float*>(image.rawData() + y * image.bytesPerLine());
            for (long x = 0; x < pixelBytes(image) / 4; ++x)
                row[x] = float(int(random() % 6001) - 3000) / 10.0f;
        }
    }
    return image;
}

bool sameBuffers(const VImage& a, const VImage& b)
{
    return a.dataSize() == b.dataSize() && std::memcmp(a.rawData(), b.rawData(), size_t(a.dataSize())) == 0;
}

VConvKernel valuesElement()
{
    VConvKernel element(4, 2, 3, 0, ConvKernelValues); // off-centre: borders differ unless replicated
    element.setCustomValues({QVariantList{1, 0, 1, 1}, QVariantList{0, 1, 1, 0}});
    return element;
}

using Op = std::function<VStatus(const VImage&, VImage*)>;
using Reference = std::function<void(const cv::Mat&, cv::Mat&)>;

struct Wrapper {
    const char* name;
    Pairs pairs;
    Op op;
    Reference reference;
    Origin origin = OriginBottomLeft;
};

cv::Mat elementMat() { return valuesElement().kernel()->values.clone(); }

std::vector<Wrapper> wrappers()
{
    const auto R = cv::BORDER_REPLICATE;
    VImage kernel = makeImage(3, 4, GrayScale, Channel32f, 9);
    float* k = reinterpret_cast<float*>(kernel.rawData());
    for (int i = 0; i < 12; ++i)
        k[i] = float(i % 5) - 1.5f;
    const cv::Mat K = roiMat(kernel).clone();
    const cv::Mat E = elementMat();
    const cv::Point EA(3, 0);
    const VConvKernel ellipse(5, 3, 1, 1, ConvKernelEllipse);
    const cv::Mat EL = cv::getStructuringElement(cv::MORPH_ELLIPSE, {5, 3}, {1, 1});
    const auto morph = [](int op, cv::Mat e, cv::Point a, int n) {
        return [=](const cv::Mat& s, cv::Mat& d) { cv::morphologyEx(s, d, op, e, a, n, cv::BORDER_REPLICATE); };
    };
    return {
        {"gaussian 4", pairsOf(GaussianPixels{}), [](auto& s, auto* d) { return smoothGaussian(s, d, 4); },
         [R](auto& s, auto& d) { cv::GaussianBlur(s, d, {5, 5}, 0, 0, R); }},
        {"gaussian sigma -3 1.3", pairsOf(GaussianPixels{}), [](auto& s, auto* d) { return smoothGaussianSigma(s, d, -3, 1.3); },
         [R](auto& s, auto& d) { cv::GaussianBlur(s, d, {-3, -3}, 1.3, 0, R); }},
        {"median 3", pairsOf(MedianPixels{}), [](auto& s, auto* d) { return smoothMedian(s, d, 2); },
         [](auto& s, auto& d) { cv::medianBlur(s, d, 3); }},
        {"blur 4x3", pairsOf(BlurPixels{}), [](auto& s, auto* d) { return smoothBlur(s, d, 4, 3); },
         [R](auto& s, auto& d) { cv::boxFilter(s, d, -1, {4, 3}, {-1, -1}, true, R); }},
        {"blur no scale 3", pairsOf(BlurPixels{}), [](auto& s, auto* d) { return smoothBlurNoScale(s, d, 3, 0); },
         [R](auto& s, auto& d) { cv::boxFilter(s, d, -1, {3, 3}, {-1, -1}, false, R); }},
        {"bilateral", pairsOf(BilateralPixels{}), [](auto& s, auto* d) { return smoothBilaterial(s, d, 5, 99, 20, 3); },
         [R](auto& s, auto& d) { cv::bilateralFilter(s, d, 5, 20, 3, R); }},
        {"erode", pairsOf(MorphPixels{}), [](auto& s, auto* d) { return erodeImage(s, d, valuesElement(), 2); },
         morph(cv::MORPH_ERODE, E, EA, 2)},
        {"dilate", pairsOf(MorphPixels{}), [=](auto& s, auto* d) { return dilateImage(s, d, ellipse, 1); },
         morph(cv::MORPH_DILATE, EL, {1, 1}, 1)},
        {"opening", pairsOf(MorphPixels{}), [](auto& s, auto* d) { return morphOpening(s, d, valuesElement(), 1); },
         morph(cv::MORPH_OPEN, E, EA, 1)},
        {"closing", pairsOf(MorphPixels{}), [=](auto& s, auto* d) { return morphClosing(s, d, ellipse, 2); },
         morph(cv::MORPH_CLOSE, EL, {1, 1}, 2)},
        {"gradient", pairsOf(MorphPixels{}), [](auto& s, auto* d) { return morphGradient(s, d, valuesElement(), 1); },
         morph(cv::MORPH_GRADIENT, E, EA, 1)},
        {"top hat", pairsOf(MorphPixels{}), [](auto& s, auto* d) { return morphTopHat(s, d, VConvKernel(3, 3, 1, 1, ConvKernelCross), 1); },
         morph(cv::MORPH_TOPHAT, cv::getStructuringElement(cv::MORPH_CROSS, {3, 3}), {1, 1}, 1)},
        {"black hat", pairsOf(MorphPixels{}), [](auto& s, auto* d) { return morphBlackHat(s, d, valuesElement(), 1); },
         morph(cv::MORPH_BLACKHAT, E, EA, 1)},
        {"filter2D", pairsOf(DerivativePixels{}), [kernel](auto& s, auto* d) { return filter2D(s, d, kernel, QPointF(0.7, 2.9)); },
         [K, R](auto& s, auto& d) { cv::filter2D(s, d, -1, K, {0, 2}, 0, R); }},
        {"laplace 3", pairsOf(DerivativePixels{}), [](auto& s, auto* d) { return laplaceImage(s, d, 3); },
         [R](auto& s, auto& d) { cv::Laplacian(s, d, -1, 3, 1, 0, R); }},
        {"sobel 1 0 3", pairsOf(DerivativePixels{}), [](auto& s, auto* d) { return sobelImage(s, d, 1, 0, 3); },
         [R](auto& s, auto& d) { cv::Sobel(s, d, -1, 1, 0, 3, 1, 0, R); }},
        {"sobel 0 1 5 (origin top-left)", pairsOf(DerivativePixels{}), [](auto& s, auto* d) { return sobelImage(s, d, 0, 1, 5); },
         [R](auto& s, auto& d) { cv::Sobel(s, d, -1, 0, 1, 5, 1, 0, R); }, OriginTopLeft},
        {"sobel 1 1 3 (origin bottom-left: negated)", pairsOf(DerivativePixels{}), [](auto& s, auto* d) { return sobelImage(s, d, 1, 1, 3); },
         [R](auto& s, auto& d) { cv::Sobel(s, d, -1, 1, 1, 3, 1, 0, R); d.convertTo(d, -1, -1.0); }},
    };
}

TEST(FilterWrappers, MatchTheOpenCvCallOverEveryListedPairWithBordersAtTheRoi)
{
    for (const Wrapper& w : wrappers())
        for (const auto& [f, c] : w.pairs) {
            const VImage src = withRoi(testImage(23, 17, f, c, 1, w.origin), QRect(3, 2, 15, 11));
            VImage mine = withRoi(testImage(21, 19, f, c, 2), QRect(4, 5, 15, 11));
            VImage theirs = mine.copy();
            theirs.setRoi(mine.roi());
            const VStatus status = w.op(src, &mine);
            ASSERT_TRUE(status) << w.name << " " << f << "/" << c << ": " << status.message().toStdString();
            cv::Mat out = roiMat(theirs);
            w.reference(roiMat(src), out);
            EXPECT_TRUE(sameBuffers(mine, theirs)) << w.name << " " << f << "/" << c;

            VImage fresh; // a new destination: the source's header and roi
            ASSERT_TRUE(w.op(src, &fresh)) << w.name;
            EXPECT_EQ(fresh.roi(), src.roi());
            EXPECT_TRUE(sameRoiBytes(fresh, theirs)) << w.name << " " << f << "/" << c;
        }
}

TEST(FilterWrappers, InPlaceAndOverlappingRoisGiveTheSeparateResult)
{
    for (const Wrapper& w : wrappers()) {
        const auto [f, c] = w.pairs.front();
        const VImage original = withRoi(testImage(20, 16, f, c, 3, w.origin), QRect(2, 2, 12, 10));
        VImage separate;
        ASSERT_TRUE(w.op(original, &separate)) << w.name;

        VImage image = original.copy();
        image.setRoi(original.roi());
        VImage alias = image; // shares the pixels
        const VStatus inPlace = w.op(image, &alias);
        if (std::string(w.name) == "bilateral") {
            EXPECT_EQ(inPlace.issue(), Issue::OpenCvError);
            EXPECT_TRUE(inPlace.message().contains("src.data != dst.data")) << inPlace.message().toStdString();
            EXPECT_TRUE(sameBuffers(image, original)) << "a refused call leaves the image as it was";
        } else {
            ASSERT_TRUE(inPlace) << w.name;
            EXPECT_TRUE(sameRoiBytes(image, separate)) << w.name << " in place";
        }

        VImage shifted = original.copy();
        shifted.setRoi(original.roi());
        VImage overlap = shifted;
        overlap.setRoi(QRect(4, 3, 12, 10));
        ASSERT_TRUE(w.op(shifted, &overlap)) << w.name;
        EXPECT_TRUE(sameRoiBytes(overlap, separate)) << w.name << " overlapping";
    }
}

TEST(FilterWrappers, RefuseBadInputWithTheFrameTexts)
{
    for (const Wrapper& w : wrappers()) {
        const auto [f, c] = w.pairs.front();
        const VImage good = testImage(12, 9, f, c, 4);
        const auto fails = [&](const VImage& src, VImage* dst, const char* text) {
            const VStatus status = w.op(src, dst);
            EXPECT_FALSE(status) << w.name << " " << text;
            EXPECT_TRUE(status.message().contains(text)) << w.name << ": " << status.message().toStdString();
        };
        VImage dst;
        fails(failedImage(good), &dst, "Bad status of image!");
        fails(VImage(), &dst, "Empty source image!");
        fails(good, nullptr, "Null pointer argument!");
        for (Format format : allFormats())
            for (Channel channel : allChannels())
                if (std::find(w.pairs.begin(), w.pairs.end(), std::make_pair(format, channel)) == w.pairs.end()) {
                    VImage out;
                    fails(testImage(8, 6, format, channel, 5), &out, "Can not find template with actual parameters!");
                }
        VImage otherFormat = testImage(12, 9, f == GrayScale ? BGR : GrayScale, c, 6);
        fails(good, &otherFormat, "Can not find template with actual parameters!");
        VImage smaller = testImage(11, 9, f, c, 7);
        const VImage before = smaller.copy();
        const VStatus wrongSize = w.op(good, &smaller);
        EXPECT_EQ(wrongSize.issue(), Issue::OpenCvError) << w.name;
        EXPECT_TRUE(wrongSize.message().contains("dst.size()")) << wrongSize.message().toStdString();
        EXPECT_TRUE(sameBuffers(smaller, before)) << w.name << ": a refused destination keeps its pixels";
    }
}

TEST(FilterWrappers, TypeRulesOfTheDestination)
{
    const VImage gray8 = testImage(16, 12, GrayScale, Channel8u, 8, OriginTopLeft);
    // Same-type filters refuse a wider destination with the C wrapper's precondition.
    VImage wide = testImage(16, 12, GrayScale, Channel16s, 9);
    const VStatus gauss = smoothGaussian(gray8, &wide, 3);
    EXPECT_TRUE(gauss.message().contains("Function: cvSmooth")) << gauss.message().toStdString();
    EXPECT_TRUE(erodeImage(gray8, &wide, VConvKernel(3, 3, 1, 1, ConvKernelRect), 1).message().contains("Function: cvErode"));
    // Box sums and derivatives write into the destination's own type.
    ASSERT_TRUE(sobelImage(gray8, &wide, 1, 0, 3));
    cv::Mat expected;
    cv::Sobel(roiMat(gray8), expected, CV_16S, 1, 0, 3, 1, 0, cv::BORDER_REPLICATE);
    EXPECT_EQ(cv::norm(roiMat(wide), expected, cv::NORM_INF), 0);
    VImage sums = testImage(16, 12, GrayScale, Channel32s, 10);
    ASSERT_TRUE(smoothBlurNoScale(gray8, &sums, 3, 3));
    cv::boxFilter(roiMat(gray8), expected, CV_32S, {3, 3}, {-1, -1}, false, cv::BORDER_REPLICATE);
    EXPECT_EQ(cv::norm(roiMat(sums), expected, cv::NORM_INF), 0);
}

struct OpenCvFailure {
    const char* name;
    std::function<VStatus()> call;
    const char* text;
    const char* function;
};

TEST(FilterWrappers, OpenCvErrorsBecomeStatusesWithOpenCvsMessage)
{
    const VImage gray = testImage(16, 12, GrayScale, Channel8u, 11);
    const VImage gray16 = testImage(16, 12, GrayScale, Channel16u, 12);
    VImage d;
    const auto fresh = [&d]() { d = VImage(); return &d; };
    VConvKernel custom(1, 1, 0, 0, ConvKernelCustom);
    custom.setCustomValues({1, 2, 3});
    const OpenCvFailure failures[] = {
        {"median of a negative size", [&] { return smoothMedian(gray, fresh(), -2); }, "ksize % 2 == 1", "medianBlur"},
        {"median 7 of 16u", [&] { return smoothMedian(gray16, fresh(), 7); }, "src.depth() == CV_8U", "medianBlur"},
        {"box of size 0", [&] { return smoothBlur(gray, fresh(), 0, 3); }, "0 <= anchor.x", "init"},
        {"gaussian of a negative size", [&] { return smoothGaussian(gray, fresh(), -4); }, "ksize.width > 0", "createGaussianKernels"},
        {"shape 3", [&] { return erodeImage(gray, fresh(), VConvKernel(3, 3, 1, 1, ConvKernelCustom), 1); },
         "shape == MORPH_RECT || shape == MORPH_CROSS || shape == MORPH_ELLIPSE", "getStructuringElement"},
        {"1x1 custom element, values of the wrong count", [&] { return dilateImage(gray, fresh(), custom, 1); },
         "shape == MORPH_RECT || shape == MORPH_CROSS || shape == MORPH_ELLIPSE", "getStructuringElement"},
        {"anchor outside the element", [&] { return morphOpening(gray, fresh(), VConvKernel(3, 3, 3, 0, ConvKernelRect), 1); },
         "anchor.inside", "cvCreateStructuringElementEx"},
        {"sobel aperture 33", [&] { return sobelImage(gray, fresh(), 1, 0, 33); }, "The kernel size must be odd", "getSobelKernels"},
        {"sobel order above aperture", [&] { return sobelImage(gray, fresh(), 3, 0, 3); }, "ksize > order", "getSobelKernels"},
    };
    for (const auto& failure : failures) {
        const VStatus status = failure.call();
        EXPECT_EQ(status.issue(), Issue::OpenCvError) << failure.name;
        EXPECT_TRUE(status.message().contains(failure.text)) << failure.name << ": " << status.message().toStdString();
        EXPECT_TRUE(status.message().contains(QString("Function: ") + failure.function))
            << failure.name << ": " << status.message().toStdString();
    }
}

TEST(FilterWrappers, AbsurdKernelsAndValuesAreRefusedBeforeOpenCv)
{
    const VImage gray = testImage(16, 12, GrayScale, Channel8u, 13);
    VImage bgr32f = testImage(16, 12, BGR, Channel32f, 14);
    VImage d;
    const auto fresh = [&d]() { d = VImage(); return &d; };
    const std::function<VStatus()> tooLarge[] = {
        [&] { return smoothGaussian(gray, fresh(), INT32_MAX); },
        [&] { return smoothGaussianSigma(gray, fresh(), -1, 1e9); },
        [&] { return smoothMedian(gray, fresh(), 1 << 30); },
        [&] { return smoothBlur(gray, fresh(), 3, INT32_MAX); },
        [&] { return smoothBilaterial(gray, fresh(), 0, 0, 10, 1e9); },
        [&] { return dilateImage(gray, fresh(), VConvKernel(3, 3, 1, 1, ConvKernelRect), INT32_MAX); },
        [&] { return sobelImage(gray, fresh(), 1, 0, 1 << 30); },
        [&] { return laplaceImage(gray, fresh(), INT32_MAX); },
    };
    for (const auto& call : tooLarge)
        EXPECT_TRUE(call().message().contains("Kernel is too large for the image"));
    reinterpret_cast<float*>(bgr32f.rawData())[4] = std::numeric_limits<float>::infinity();
    EXPECT_TRUE(smoothBilaterial(bgr32f, fresh(), 5, 0, 10, 10).message().contains("Bilateral filtering needs finite values"));
    // Values no filter can use fail or give a result, and never crash.
    const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
    for (const double v : {nan, inf, -inf}) {
        (void)smoothGaussianSigma(gray, fresh(), 5, v);
        (void)smoothGaussianSigma(gray, fresh(), -1, v);
        (void)smoothBilaterial(gray, fresh(), 5, 0, v, v);
        (void)smoothBilaterial(gray, fresh(), 0, 0, 10, v);
        (void)filter2D(gray, fresh(), gray, QPointF(v, 1));
        (void)sharpImage(testImage(300, 300, XRGB, Channel8u, 15), fresh(), 3, v, 0, 255);
    }
    VConvKernel huge(1 << 17, 1 << 17, 0, 0, ConvKernelRect);
    EXPECT_EQ(huge.kernel(), nullptr);
    EXPECT_TRUE(huge.status().message().contains("Structuring element is too large"));
}

TEST(ConvKernel, EqualityFlatteningAndTheCache)
{
    VConvKernel a(3, 3, 1, 1, ConvKernelValues), b = a;
    a.setCustomValues({QVariantList{1, QVariantList{0, 1}}, 0, QStringList{"x"}});
    EXPECT_EQ(a.customValues(), (QVariantList{1, 0, 1, 0, QStringList{"x"}}));
    EXPECT_NE(a, b);
    b.setCustomValues({1.0, 0, 1, 0, QStringList{"x"}});
    EXPECT_EQ(a, b) << "variant equality: 1 == 1.0";
    b.setCustomValues({1.0, 0, 1, 0, QStringList{"y"}});
    EXPECT_NE(a, b) << "the last value differs";

    VConvKernel rect(3, 3, 1, 1, ConvKernelRect), broken(0, 3, 0, 0, ConvKernelRect);
    VConvKernel same = rect;
    const StructuringElement* built = rect.kernel();
    ASSERT_NE(built, nullptr);
    EXPECT_EQ(cv::countNonZero(built->values), 9);
    EXPECT_EQ(broken.kernel(), nullptr);
    broken.setCols(3);
    EXPECT_EQ(same, rect) << "the cache plays no part";
    EXPECT_EQ(broken, VConvKernel(3, 3, 0, 0, ConvKernelRect)) << "nor does the status";
    EXPECT_NE(broken.kernel(), nullptr);

    // Every setter drops the cached element; copies never take it.
    const std::function<void(VConvKernel&)> setters[] = {
        [](VConvKernel& k) { k.setCols(5); }, [](VConvKernel& k) { k.setRows(2); },
        [](VConvKernel& k) { k.setAnchorX(0); }, [](VConvKernel& k) { k.setAnchorY(0); },
        [](VConvKernel& k) { k.setShape(ConvKernelCross); },
    };
    for (const auto& set : setters) {
        VConvKernel k(3, 3, 1, 1, ConvKernelRect);
        ASSERT_NE(k.kernel(), nullptr);
        set(k);
        const StructuringElement* rebuilt = k.kernel();
        ASSERT_NE(rebuilt, nullptr);
        const cv::Mat expected = cv::getStructuringElement(int(k.shape()), {k.cols(), k.rows()}, {k.anchorX(), k.anchorY()});
        EXPECT_EQ(rebuilt->values.size(), expected.size());
        EXPECT_EQ(cv::norm(rebuilt->values, expected, cv::NORM_INF), 0);
        EXPECT_EQ(rebuilt->anchor, cv::Point(k.anchorX(), k.anchorY()));
    }
    VConvKernel values = valuesElement();
    const uchar* first = values.kernel()->values.ptr();
    EXPECT_EQ(std::vector<uchar>(first, first + 8), (std::vector<uchar>{1, 0, 1, 1, 0, 1, 1, 0}));
    values.setCustomValues({1, 1, 1, 1, 1, 1, 1, 1});
    EXPECT_EQ(cv::countNonZero(values.kernel()->values), 8);
    values.setCustomValues({1, 1});
    EXPECT_EQ(values.kernel(), nullptr);
    EXPECT_TRUE(values.status().message().contains("Custom element needs cols * rows values"));
}

// The unsharp mask computed from its definition.
template <class T>
VImage sharpenedByDefinition(const VImage& src, const VImage& blurred, double amount, int low, int high)
{
    VImage expected = blurred.copy();
    expected.setRoi(blurred.roi());
    const cv::Mat s = roiMat(src);
    cv::Mat e = roiMat(expected);
    for (int y = 0; y < s.rows; ++y)
        for (int x = 0; x < s.cols; ++x) {
            const T* sp = s.ptr<T>(y) + 4 * x;
            T* ep = e.ptr<T>(y) + 4 * x;
            const double difference = std::abs((0.114 * ep[0] + 0.587 * ep[1] + 0.299 * ep[2]) -
                                               (0.114 * sp[0] + 0.587 * sp[1] + 0.299 * sp[2]));
            if (low <= difference && difference <= high) {
                for (int c = 0; c < 3; ++c)
                    ep[c] = T(MathUtils::bound8u((double(sp[c]) - double(ep[c])) * amount + double(ep[c])));
            } else {
                std::copy(sp, sp + 4, ep);
            }
        }
    return expected;
}

TEST(SharpImage, FollowsItsDefinitionOnSmallAndLargeImagesAlsoInPlace)
{
    for (const auto& [f, c] : pairsOf(SharpPixels{}))
        for (int width : {19, 600}) { // the large one takes the vectorised rows
            const VImage src = withRoi(testImage(width, 130, f, c, 15), QRect(3, 1, width - 5, 127));
            VImage blurred;
            ASSERT_TRUE(smoothGaussian(src, &blurred, 5));
            // Amount 1 with the full range, and an empty range (low above high), give the source back.
            for (const double amount : {1.0, 2.0, 1.7, 0.3, -0.55, 3.14159, 1e7, std::nan("")})
                for (const auto& [low, high] : {std::pair{3, 10}, std::pair{0, 255}, std::pair{-5, 1000}, std::pair{20, 10}}) {
                    VImage mine;
                    ASSERT_TRUE(sharpImage(src, &mine, 4, amount, low, high));
                    const VImage expected = c == Channel8u ? sharpenedByDefinition<quint8>(src, blurred, amount, low, high)
                                                           : sharpenedByDefinition<float>(src, blurred, amount, low, high);
                    EXPECT_TRUE(sameRoiBytes(mine, expected)) << f << "/" << c << " width " << width << " amount " << amount
                                                              << " range " << low << ".." << high;
                }
            // In place: the source is read from a copy before the blur overwrites it.
            VImage separate;
            ASSERT_TRUE(sharpImage(src, &separate, 5, 2.5, 1, 90));
            VImage image = src.copy();
            image.setRoi(src.roi());
            VImage alias = image;
            ASSERT_TRUE(sharpImage(image, &alias, 5, 2.5, 1, 90));
            EXPECT_TRUE(sameRoiBytes(image, separate)) << f << "/" << c << " " << width;
        }
}

TEST(SharpImage, RowKernelsDecideExactBoundsByTheDoubleRule)
{
    // Differences d = source - blurred with 114 dB + 587 dG + 299 dR = +-3000 or +-10000: luminance
    // differences exactly on the bounds 3 and 10, where the double-precision sums may fall either side.
    std::vector<std::array<int, 3>> onBounds;
    for (int target : {3000, -3000, 10000, -10000})
        for (int dB = -255; dB <= 255; dB += 7)
            for (int dG = -255; dG <= 255; ++dG) {
                const int rest = target - 114 * dB - 587 * dG;
                if (rest % 299 == 0 && std::abs(rest / 299) <= 255)
                    onBounds.push_back({dB, dG, rest / 299});
            }
    ASSERT_GT(onBounds.size(), 100u);
    std::mt19937 random(17);
    const int width = 2000;
    std::vector<std::uint8_t> src(4 * width), blurred(4 * width);
    for (int x = 0; x < width; ++x) {
        const auto& d = onBounds[random() % onBounds.size()];
        for (int c = 0; c < 4; ++c) {
            const int diff = c < 3 && x % 3 != 0 ? d[size_t(c)] : int(random() % 41) - 20;
            const int base = diff >= 0 ? int(random() % unsigned(256 - diff)) : -diff + int(random() % unsigned(256 + diff));
            blurred[size_t(4 * x + c)] = std::uint8_t(base);
            src[size_t(4 * x + c)] = std::uint8_t(base + diff);
        }
    }
    for (const double amount : {2.0, 1.7}) {
        const auto rule = kernel::fixedPointSharpenRule(amount, 3, 10);
        ASSERT_TRUE(rule);
        const simd::RowKernels* builds[2];
        for (int k = 0, n = simd::availableRowKernels(builds, 2); k < n; ++k) {
            std::vector<std::uint8_t> out = blurred;
            builds[k]->sharpenRow(src.data(), out.data(), width, *rule);
            int sharpened = 0;
            for (int x = 0; x < width; ++x) {
                const std::uint8_t* s = &src[size_t(4 * x)];
                const std::uint8_t* b = &blurred[size_t(4 * x)];
                const double difference = std::abs((0.114 * b[0] + 0.587 * b[1] + 0.299 * b[2]) - (0.114 * s[0] + 0.587 * s[1] + 0.299 * s[2]));
                std::uint8_t expected[4];
                const bool inside = 3 <= difference && difference <= 10;
                for (int c = 0; c < 4; ++c)
                    expected[c] = !inside ? s[c] : c == 3 ? b[c] : MathUtils::bound8u((double(s[c]) - b[c]) * amount + b[c]);
                sharpened += inside;
                ASSERT_EQ(std::memcmp(expected, &out[size_t(4 * x)], 4), 0) << builds[k]->name << " pixel " << x;
            }
            EXPECT_GT(sharpened, width / 2) << "most pixels sit on a bound";
        }
    }
}

TEST(SharpImage, FixedPointRuleIsFoundForCommonAmountsAndRefusedWhereItCannotHold)
{
    for (double amount : {0.5, 1.0, 1.5, 1.7, 2.0, 2.5, 3.0, 4.0, 10.0, 0.25})
        EXPECT_TRUE(kernel::fixedPointSharpenRule(amount, 0, 10).has_value()) << amount;
    for (double amount : {std::nan(""), std::numeric_limits<double>::infinity(), 1e300})
        EXPECT_FALSE(kernel::fixedPointSharpenRule(amount, 0, 10).has_value()) << amount;
}

} // namespace
