// Test entry point: a core application (translators need one) and a quiet "vexa" category, so that the
// failures the tests provoke do not flood the output. Records still reach the sinks tests install.
#include <QCoreApplication>
#include <QLoggingCategory>

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("vexa=false"));
#ifdef VEXA_UNDER_TSAN
    // OpenCV's parallel loops run on TBB's worker threads, and TBB is not instrumented: the sanitizer cannot
    // see it hand work over and back, and takes every pixel a worker touches for a race. Sequential, OpenCV
    // runs on the threads the tests start, so that every report is about the library's own sharing.
    cv::setNumThreads(0);
#endif
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
