// Statuses, message streams, sinks and the Qt logging category.
#include <vlog/VLog.h>

#include "support/LogCapture.h"

#include <QLoggingCategory>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

VMessageStream errorHere() { return VLog::errorStream("Vexa", "void f()", "gen/gen_test", 12, Issue::ID(3200)); }

TEST(VStatus, DefaultAndOkAreGoodAStatusFromAStreamIsAFailure)
{
    EXPECT_TRUE(VStatus().isOk());
    EXPECT_TRUE(bool(VStatus::Ok));
    EXPECT_TRUE(VStatus::Ok.message().isEmpty());

    const VStatus failed = errorHere() << "Reason: " << "x";
    EXPECT_FALSE(failed.isOk());
    EXPECT_FALSE(bool(failed));
    EXPECT_EQ(failed.message(), "Reason: x");
    EXPECT_EQ(failed.issue(), Issue::LibraryError);

    VStatus copy = failed; // statuses are values
    copy = VStatus::Ok;
    EXPECT_FALSE(failed.isOk());
    EXPECT_TRUE(copy.isOk());
}

TEST(VMessageStream, ComposesEveryArgumentTypeWithoutSeparators)
{
    LogCapture log;
    {
        VMessageStream s = errorHere();
        s << "a" << QString("b") << std::string("c") << 1 << -2L << 3.5 << 4u << 5LL;
    }
    ASSERT_EQ(log.count(), 1u);
    EXPECT_EQ(log.records()[0].text, "abc1-23.545");
}

TEST(VMessageStream, CopiesEmitTheRecordOnceWhenTheLastCopyGoes)
{
    LogCapture log;
    VStatus status;
    {
        VMessageStream first = errorHere() << "once";
        VMessageStream second = first;
        VMessageStream third(second);
        status = VStatus(third);
        EXPECT_EQ(log.count(), 0u) << "nothing is written while a copy lives";
    }
    ASSERT_EQ(log.count(), 1u);
    const VLog::Record r = log.records()[0];
    EXPECT_EQ(r.level, VLog::Record::Error);
    EXPECT_EQ(r.module, "Vexa");
    EXPECT_EQ(r.function, "void f()");
    EXPECT_EQ(r.file, "gen/gen_test");
    EXPECT_EQ(r.line, 12);
    EXPECT_EQ(r.issue, Issue::LibraryError);
    EXPECT_EQ(r.text, "once");
    EXPECT_EQ(status.message(), "once");
}

TEST(VLog, DefaultStreamsAndRemovedSinksGetNothing)
{
    int seen = 0;
    const int handle = VLog::addSink([&seen](const VLog::Record&) { ++seen; });
    { VMessageStream s; s << "ignored"; }
    errorHere() << "one";
    VLog::removeSink(handle);
    errorHere() << "two";
    EXPECT_EQ(seen, 1);
}

struct QtMessage {
    QtMsgType type;
    QString category, file, function, text;
    int line;
};
std::vector<QtMessage> qtMessages;
void collectQtMessage(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    qtMessages.push_back({type, context.category, context.file, context.function, text, context.line});
}

TEST(VLog, RecordsGoThroughTheModulesLoggingCategoryAndObeyItsRules)
{
    qtMessages.clear();
    const QtMessageHandler previous = qInstallMessageHandler(collectQtMessage);
    QLoggingCategory::setFilterRules("vexa=true");
    errorHere() << "Reason: x";
    VLog::warningStream("Vexa", "void g()", "imp/VImage", 7, Issue::ID(3400)) << "careful";
    VLog::setConsole(VLog::Console::Off);
    errorHere() << "switched off";
    VLog::setConsole(VLog::Console::Auto);
    size_t sinks = 0;
    {
        LogCapture log;
        errorHere() << "a host that has a sink handles its failures itself";
        VLog::setConsole(VLog::Console::On);
        errorHere() << "unless asked for both";
        VLog::setConsole(VLog::Console::Auto);
        QLoggingCategory::setFilterRules("vexa.critical=false");
        VLog::setConsole(VLog::Console::On);
        errorHere() << "silenced on the Qt side only";
        VLog::setConsole(VLog::Console::Auto);
        sinks = log.count();
    }
    QLoggingCategory::setFilterRules("vexa=false");
    qInstallMessageHandler(previous);

    ASSERT_EQ(qtMessages.size(), 3u);
    EXPECT_EQ(qtMessages[0].type, QtCriticalMsg);
    EXPECT_EQ(qtMessages[0].category, "vexa");
    EXPECT_EQ(qtMessages[0].file, "gen/gen_test");
    EXPECT_EQ(qtMessages[0].line, 12);
    EXPECT_EQ(qtMessages[0].function, "void f()");
    EXPECT_EQ(qtMessages[0].text, "[3200] Reason: x");
    EXPECT_EQ(qtMessages[1].type, QtWarningMsg);
    EXPECT_EQ(qtMessages[1].text, "[3400] careful");
    EXPECT_EQ(qtMessages[2].text, "[3200] unless asked for both");
    EXPECT_EQ(sinks, 3u) << "sinks see records that the category's rules silence";
}

TEST(VLog, RecordsFromManyThreadsAllArrive)
{
    LogCapture log;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 1000; ++i)
                VLog::errorStream(t % 2 ? "Vexa" : "Other", "f", "x", i, Issue::None) << i;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(log.count(), 4000u);
}

} // namespace
