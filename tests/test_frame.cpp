// The operation frame: each kind of exception becomes one record and a status with the fixed text.
#include <vexa/Vexa.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/detail/frame.h>

#include "support/LogCapture.h"

#include <opencv2/core.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>

using namespace VEXA;

namespace {

int frameLine = 0;

VStatus runFramed(const std::function<void()>& body)
{
    frameLine = __LINE__ + 1;
    return guarded(VEXA_CALL_SITE, [&] {
        body();
        return VStatus::Ok;
    });
}

struct Case {
    const char* name;
    std::function<void()> thrower;
    const char* text;
    Issue::ID issue;
    const char* reason; // the words a person reads: the text without its framing
};

TEST(Frame, EveryCatchClauseGivesItsTextAndOneRecord)
{
    const char* const unsupported = "the operation does not take the image's pixel format and component type";
    const Case cases[] = {
        {"ocv", [] { throw dip_ocv_exception("layer"); }, "Reason: layer", Issue::LibraryError, "layer"},
        {"unsupported", [] { throwUnsupported(); }, "Reason: Can not find template with actual parameters!",
         Issue::LibraryError, unsupported},
        {"unsupported type", [] { throwUnsupported(BGR, Channel16s); },
         "Reason: Can not find template with actual parameters!", Issue::LibraryError,
         "the operation does not take BGR 16s images"},
        {"unsupported pair", [] { throwUnsupported(GrayScale, Channel8u, YUV422, Channel32f); },
         "Reason: Can not find template with actual parameters!", Issue::LibraryError,
         "the operation does not take GrayScale 8u images into YUV422 32f ones"},
        {"bad status", [] { throw dip_exception_bad_status(); }, "Reason: Bad status of image!", Issue::LibraryError,
         "Bad status of image!"},
        {"empty", [] { throw dip_exception_empty_source_image(); }, "Reason: Empty source image!", Issue::LibraryError,
         "Empty source image!"},
        {"dip", [] { throw dip_exception("Pixel(). Bad RasterT."); }, "Reason: Pixel(). Bad RasterT.",
         Issue::LibraryError, "Pixel(). Bad RasterT."},
        {"opencv", [] { throw cv::Exception(-5, "x", "f", "g", 7); },
         "Reason: x Error code: -5 Function: f File: g Line: 7", Issue::OpenCvError, "OpenCV failed in f: x"},
        {"opencv, no function", [] { throw cv::Exception(-5, "x", "", "g", 7); },
         "Reason: x Error code: -5 Function:  File: g Line: 7", Issue::OpenCvError, "OpenCV failed: x"},
        {"cancelled", [] { throw dip_exception_cancelled(); }, "Operation cancelled", Issue::Cancelled,
         "Operation cancelled"},
        {"bad_alloc", [] { throw std::bad_alloc(); }, "Unexpected error.", Issue::LibraryError, "out of memory"},
        {"int", [] { throw 42; }, "Unexpected error.", Issue::LibraryError, "Unexpected error."},
        {"std", [] { throw std::runtime_error("not ours"); }, "Unexpected error.", Issue::LibraryError,
         "Unexpected error."},
        {"base class", [] { throw VEXA::exception("base"); }, "Unexpected error.", Issue::LibraryError,
         "Unexpected error."},
    };
    for (const Case& c : cases) {
        LogCapture log;
        const VStatus status = runFramed(c.thrower);
        EXPECT_FALSE(status) << c.name;
        EXPECT_EQ(status.message(), c.text) << c.name;
        EXPECT_EQ(status.issue(), c.issue) << c.name;
        EXPECT_EQ(status.reason(), c.reason) << c.name;
        const auto records = log.records();
        ASSERT_EQ(records.size(), 1u) << c.name;
        const VLog::Record& r = records[0];
        EXPECT_EQ(r.level, VLog::Record::Error);
        EXPECT_EQ(r.module, "Vexa");
        EXPECT_EQ(r.file, "tests/test_frame") << "relative to the source root, without extension";
        EXPECT_EQ(r.line, frameLine);
        EXPECT_TRUE(r.function.contains("runFramed(const std::function<void()>&)")) << r.function.toStdString();
        EXPECT_EQ(r.issue, c.issue);
        EXPECT_EQ(r.text, c.text);
    }
}

TEST(Frame, AnOpenCvErrorKeepsItsFields)
{
    LogCapture log;
    const VStatus status = runFramed([] {
        cv::Mat threeChannels(2, 2, CV_8UC3, cv::Scalar::all(1));
        (void)cv::countNonZero(threeChannels);
    });
    EXPECT_EQ(status.issue(), Issue::OpenCvError);
    EXPECT_TRUE(status.message().startsWith("Reason: ")) << status.message().toStdString();
    EXPECT_TRUE(status.message().contains(" Error code: -215 Function: countNonZero File: "));
    EXPECT_EQ(log.count(), 1u);
}

TEST(Frame, AGoodBodyReturnsItsOwnStatusAndLogsNothing)
{
    LogCapture log;
    EXPECT_TRUE(runFramed([] {}));
    const VStatus kernelFailure = guarded(VEXA_CALL_SITE, [] {
        return VStatus(errorAt(VEXA_CALL_SITE, Issue::LibraryError) << "No common points");
    });
    EXPECT_EQ(kernelFailure.message(), "No common points");
    EXPECT_EQ(log.count(), 1u) << "a failure the body returns is the kernel's own record, not the frame's";
}

// Qt ends a program that renders text without a QGuiApplication; these tests run under a core application.
TEST(Frame, TextWithoutAGuiApplicationFailsInsteadOfEndingTheProgram)
{
    VImage image;
    image.create(8, 8, VEXA::GrayScale, VEXA::Channel8u, VEXA::OriginTopLeft, VEXA::RowsAlignNone);
    const VStatus status = VEXA::drawText(&image, QStringLiteral("x"), QPointF(1, 6), QFont(), Qt::white);
    EXPECT_TRUE(status.message().contains("Drawing text needs a QGuiApplication")) << status.message().toStdString();
}

TEST(Frame, SourceNamesLoseOnlyTheirExtension)
{
    EXPECT_EQ(sourceName("gen/gen_stat_image.cpp"), "gen/gen_stat_image");
    EXPECT_EQ(sourceName("imp/ImageData"), "imp/ImageData");
    EXPECT_EQ(sourceName("imp/kernels/image_converters.h"), "imp/image_converters");
    EXPECT_EQ(sourceName("dir.d/file"), "dir.d/file");
}

} // namespace
