// Entry point of the tests that draw text: Qt's font database comes only with a QGuiApplication, run on the
// offscreen platform unless the environment names another (test discovery runs without ctest's settings).
#include <QGuiApplication>
#include <QLoggingCategory>

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("vexa=false"));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
