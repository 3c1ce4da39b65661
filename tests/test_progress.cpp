#include <vexa/Vexa.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

TEST(Progress, SectionsMapOntoTheWholeAndTheFractionNeverFalls)
{
    std::vector<double> seen;
    VProgress progress([&seen](double fraction, const QString&) { seen.push_back(fraction); });
    progress.report(0.2, "start");
    {
        const VProgress::Section second(&progress, 0.5, 1.0);
        progress.report(0.0, "inner");
        {
            const VProgress::Section quarter(&progress, 0.5, 1.0); // 0.75 .. 1 of the whole
            progress.report(0.5, "nested");
        }
        progress.report(0.25, "falls back"); // 0.625 < 0.875: not passed on
        progress.report(1.0, "done");
    }
    progress.report(0.1, "after"); // the whole again: 0.1 would fall
    EXPECT_EQ(seen, (std::vector<double>{0.2, 0.5, 0.875, 1.0}));
    progress.reset();
    EXPECT_EQ(progress.fraction(), 0.0);
}

TEST(Progress, ScopesNestPerThreadAndCancelCrossesThreads)
{
    VProgress outer, inner;
    EXPECT_EQ(VProgressScope::current(), nullptr);
    {
        const VProgressScope a(&outer);
        {
            const VProgressScope b(&inner);
            EXPECT_EQ(VProgressScope::current(), &inner);
            std::thread([] { EXPECT_EQ(VProgressScope::current(), nullptr) << "scopes are per thread"; }).join();
        }
        EXPECT_EQ(VProgressScope::current(), &outer);
        std::thread([&outer] { outer.cancel(); }).join();
        EXPECT_TRUE(outer.isCancelled());
    }
    EXPECT_EQ(VProgressScope::current(), nullptr);
    outer.reset();
    EXPECT_FALSE(outer.isCancelled());
}
