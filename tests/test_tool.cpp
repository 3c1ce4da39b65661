// The vexa command-line tool, run as a user runs it: one-line refusals with their exit codes, reproducible
// sample series, and a merge of one that is closer to the sharp scene than any of its shots.
#include <vexa/Vexa.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

namespace {

struct ToolRun {
    int code = -1;
    QByteArray out;
    QString err;
};

ToolRun vexa(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral(VEXA_TOOL_PATH), arguments);
    ToolRun run;
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit)
        return run;
    run.code = process.exitCode();
    run.out = process.readAllStandardOutput();
    run.err = QString::fromLocal8Bit(process.readAllStandardError());
    return run;
}

QByteArray fileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The picture's colour (B, G, R), as a matrix that owns its pixels.
cv::Mat colourOf(const QString& path)
{
    VImage image;
    if (!image.load(path))
        return {};
    const VImage xrgb = image.convertFast(VEXA::XRGB, VEXA::Channel8u);
    const cv::Mat view(xrgb.height(), xrgb.width(), CV_8UC4, xrgb.rawData(), size_t(xrgb.bytesPerLine()));
    cv::Mat bgr;
    cv::cvtColor(view, bgr, cv::COLOR_BGRA2BGR);
    return bgr;
}

const QStringList kSampleFiles{"shot_000.png", "shot_001.png", "shot_002.png", "truth.png", "depth.png"};
// A small noisy series; the noise must be as reproducible as the rest.
const QStringList kSeries{"--size", "96x64", "--shots", "3", "--noise", "1.5"};

class VexaTool : public ::testing::Test {
protected:
    // One small series, shared by the tests.
    static void SetUpTestSuite()
    {
        dir_ = new QTemporaryDir;
        series_ = vexa(QStringList{"sample", "focus-stack", path("a")} + kSeries);
    }
    static void TearDownTestSuite() { delete dir_; }

    static QString path(const QString& name) { return dir_->filePath(name); }
    static QString shot(int i) { return path(QStringLiteral("a/shot_00%1.png").arg(i)); }

    static QTemporaryDir* dir_;
    static ToolRun series_;
};

QTemporaryDir* VexaTool::dir_ = nullptr;
ToolRun VexaTool::series_;

TEST_F(VexaTool, RefusesBadCommandLinesAndInputsInOneLine)
{
    ASSERT_EQ(series_.code, 0) << series_.err.toStdString();
    QFile text(path("notes.png"));
    ASSERT_TRUE(text.open(QIODevice::WriteOnly));
    text.write("not an image\n");
    text.close();
    VImage narrow(40, 64);
    std::memset(narrow.rawData(), 90, size_t(narrow.dataSize()));
    ASSERT_TRUE(narrow.save(path("narrow.png")));

    const QString out = path("refused.png");
    const struct {
        QStringList arguments;
        int code;
        QString says;
    } cases[] = {
        {{}, 2, "no command"},
        {{"frobnicate"}, 2, "unknown command 'frobnicate'"},
        {{"sample", "focus-stack", path("b"), "--size", "96by64"}, 2, "--size"},
        {{"focus-stack", shot(0), "-o", out}, 2, "at least two shots are needed"},
        {{"focus-stack", shot(0), shot(1)}, 2, "-o FILE"},
        {{"focus-stack", shot(0), shot(1), "-o", out, "--method", "blend"}, 2, "unknown method 'blend'"},
        {{"focus-stack", shot(0), shot(1), "-o", out, "--sharpen"}, 2, "sharpen"},
        {{"focus-stack", shot(0), path("gone.png"), "-o", out}, 1, path("gone.png")},
        {{"focus-stack", shot(0), path("notes.png"), "-o", out}, 1, path("notes.png")},
        {{"focus-stack", shot(0), path("narrow.png"), "-o", out}, 1, path("narrow.png")},
        {{"focus-stack", shot(0), shot(1), "-o", path("no/such/dir/out.png")}, 1, "cannot write"},
    };
    for (const auto& c : cases) {
        const ToolRun run = vexa(c.arguments);
        const std::string context = c.arguments.join(' ').toStdString();
        EXPECT_EQ(run.code, c.code) << context;
        EXPECT_TRUE(run.err.startsWith("vexa: ") && run.err.count('\n') == 1)
            << context << ": " << run.err.toStdString();
        EXPECT_TRUE(run.err.contains(c.says)) << context << ": " << run.err.toStdString();
        EXPECT_FALSE(QFile::exists(out)) << context;
    }
}

TEST_F(VexaTool, SampleSeriesAreReproducibleAndFollowTheSeed)
{
    ASSERT_EQ(series_.code, 0) << series_.err.toStdString();
    ASSERT_EQ(vexa(QStringList{"sample", "focus-stack", path("again")} + kSeries).code, 0);
    for (const QString& name : kSampleFiles) {
        const QByteArray bytes = fileBytes(path("a/" + name));
        EXPECT_FALSE(bytes.isEmpty()) << name.toStdString();
        EXPECT_EQ(bytes, fileBytes(path("again/" + name))) << name.toStdString();
    }
    EXPECT_FALSE(QFile::exists(path("a/shot_003.png")));

    VImage depth;
    ASSERT_TRUE(depth.load(path("a/depth.png")));
    EXPECT_EQ(depth.format(), VEXA::GrayScale);
    EXPECT_EQ(depth.channelType(), VEXA::Channel8u);
    EXPECT_EQ(depth.size(), QSize(96, 64));
    double nearest = 0, farthest = 0;
    cv::minMaxLoc(cv::Mat(64, 96, CV_8U, depth.rawData(), size_t(depth.bytesPerLine())), &nearest, &farthest);
    EXPECT_EQ(nearest, 0);
    EXPECT_EQ(farthest, 255);

    ASSERT_EQ(vexa(QStringList{"sample", "focus-stack", path("other"), "--seed", "2"} + kSeries).code, 0);
    EXPECT_NE(fileBytes(path("a/truth.png")), fileBytes(path("other/truth.png")));
    EXPECT_NE(fileBytes(path("a/depth.png")), fileBytes(path("other/depth.png")));
}

TEST_F(VexaTool, MergeIsCloserToTheSharpSceneThanEveryShot)
{
    ASSERT_EQ(series_.code, 0) << series_.err.toStdString();
    const ToolRun run = vexa({"focus-stack", shot(0), shot(1), shot(2), "-o", path("merged.png"), "--json"});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    const QJsonObject report = QJsonDocument::fromJson(run.out).object();
    EXPECT_EQ(report["shots"].toInt(), 3);
    EXPECT_EQ(report["width"].toInt(), 96);
    EXPECT_EQ(report["height"].toInt(), 64);
    EXPECT_EQ(report["method"].toString(), "max");
    EXPECT_EQ(report["align"].toString(), "none");
    EXPECT_GE(report["seconds"].toObject()["total"].toDouble(-1), 0);
    EXPECT_GT(report["peak_rss_mb"].toDouble(), 0);

    const cv::Mat truth = colourOf(path("a/truth.png"));
    const cv::Mat merged = colourOf(path("merged.png"));
    ASSERT_EQ(merged.size(), truth.size());
    const double mergedPsnr = cv::PSNR(merged, truth);
    for (int i = 0; i < 3; ++i)
        EXPECT_GT(mergedPsnr, cv::PSNR(colourOf(shot(i)), truth)) << "shot " << i;

    // The depth map: which shot each pixel came from, as 16-bit gray.
    ASSERT_EQ(vexa({"focus-stack", shot(0), shot(1), shot(2), "-o", path("merged.tif"), "--method", "depth-map",
                    "--depth-map", path("depth16.png")})
                  .code,
              0);
    VImage depth;
    ASSERT_TRUE(depth.load(path("depth16.png")));
    EXPECT_EQ(depth.channelType(), VEXA::Channel16u);
    double farthest = 0;
    cv::minMaxLoc(cv::Mat(64, 96, CV_16U, depth.rawData(), size_t(depth.bytesPerLine())), nullptr, &farthest);
    EXPECT_EQ(farthest, 2);
    EXPECT_TRUE(VImage::canLoad(path("merged.tif")));
}

} // namespace
