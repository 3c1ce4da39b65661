// Test entry point: a core application (translators need one) and a quiet "vexa" category, so that the
// failures the tests provoke do not flood the output. Records still reach the sinks tests install.
#include <QCoreApplication>
#include <QLoggingCategory>

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("vexa=false"));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
