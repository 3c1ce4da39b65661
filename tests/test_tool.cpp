// The vexa command-line tool, run as a user runs it: one-line refusals with their exit codes and nothing
// left behind, reproducible sample series, merges closer to the sharp scene than any shot, exact byte-array
// round trips, measurements checked against OpenCV, batches, and Ctrl-C. Over 500 lines because each
// command is checked as a separate process, and one file keeps their shared runner and fixtures.
#include <vexa/Vexa.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace {

struct ToolRun {
    int code = -1;
    QByteArray out;
    QString err;
};

// The exit code and output of a finished run; a crash gives code -1.
ToolRun resultOf(QProcess& process, const QByteArray& err)
{
    ToolRun run;
    if (process.state() != QProcess::NotRunning || process.exitStatus() != QProcess::NormalExit)
        return run;
    run.code = process.exitCode();
    run.out = process.readAllStandardOutput();
    run.err = QString::fromLocal8Bit(err);
    return run;
}

// Runs the tool on the given standard input.
ToolRun vexa(const QStringList& arguments, const QByteArray& input = QByteArray())
{
    QProcess process;
    process.start(QStringLiteral(VEXA_TOOL_PATH), arguments);
    process.write(input);
    process.closeWriteChannel();
    process.waitForFinished(60000);
    return resultOf(process, process.readAllStandardError());
}

// Runs the tool with its stderr on a terminal of its own, where it draws its progress bar, and sends it
// SIGINT once the bar shows `stage`: the tool has its handler by then and the work has begun, however slowly
// the machine runs it. err is all the terminal received, the bar included.
ToolRun vexaInterruptedAt(const QStringList& arguments, const QByteArray& stage)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
        return ToolRun();
    // Held open to the end, so that reading the terminal never fails for want of a writer; raw, so that the
    // bytes arrive as written ("\n" stays "\n").
    const int terminal = ::open(ptsname(master), O_RDWR | O_NOCTTY);
    termios raw{};
    tcgetattr(terminal, &raw);
    cfmakeraw(&raw);
    tcsetattr(terminal, TCSANOW, &raw);
    QProcess process;
    process.setChildProcessModifier([terminal] { ::dup2(terminal, STDERR_FILENO); });
    process.start(QStringLiteral(VEXA_TOOL_PATH), arguments);
    process.closeWriteChannel();
    QByteArray shown;
    const auto readTerminal = [&] {
        char buffer[4096];
        for (ssize_t n; (n = ::read(master, buffer, sizeof buffer)) > 0;)
            shown.append(buffer, n);
    };
    bool interrupted = false;
    QElapsedTimer running;
    running.start();
    while (process.state() != QProcess::NotRunning && !process.waitForFinished(20)) {
        readTerminal();
        if (!interrupted && shown.contains(stage))
            interrupted = ::kill(pid_t(process.processId()), SIGINT) == 0;
        if (running.elapsed() > 60000) // a tool that never gets there fails the test instead of hanging it
            process.kill();
    }
    readTerminal();
    ::close(terminal);
    ::close(master);
    return resultOf(process, shown);
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

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QJsonObject jsonOf(const ToolRun& run) { return QJsonDocument::fromJson(run.out).object(); }

// Saves an 8-bit BGR or 16-bit gray matrix through the library.
bool save(const cv::Mat& m, const QString& path)
{
    VImage image;
    image.create(m.cols, m.rows, m.channels() == 3 ? VEXA::BGR : VEXA::GrayScale,
                 m.depth() == CV_16U ? VEXA::Channel16u : VEXA::Channel8u, VEXA::OriginBottomLeft, VEXA::RowsAlignNone);
    for (int y = 0; y < m.rows; ++y)
        std::memcpy(image.rawData() + y * image.bytesPerLine(), m.ptr(y), m.cols * m.elemSize());
    image.resetHash();
    return image.save(path);
}

// Temporaries included.
// The byte array of an XRGB 8u image of uniform noise: incompressible, slow to filter and to deflate.
QByteArray noiseBytes(int width, int height)
{
    VImage noise(width, height);
    cv::Mat pixels(height, width, CV_8UC4, noise.rawData(), size_t(noise.bytesPerLine()));
    cv::randu(pixels, 0, 255);
    noise.resetHash();
    return noise.toByteArray(VEXA::CompressionNone);
}

QStringList filesIn(const QString& dir) { return QDir(dir).entryList(QDir::Files | QDir::Hidden); }

const QStringList kShots{"shot_000.png", "shot_001.png", "shot_002.png"};
const QStringList kSampleFiles = kShots + QStringList{"truth/truth.png", "truth/depth.png", "truth/nuisances.json"};
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
    ASSERT_TRUE(writeFile(path("notes.png"), "not an image\n"));
    VImage narrow(40, 64);
    std::memset(narrow.rawData(), 90, size_t(narrow.dataSize()));
    ASSERT_TRUE(narrow.save(path("narrow.png")));
    ASSERT_TRUE(writeFile(path("damaged.vexa"), VImage(8, 8).toByteArray().left(40)));
    const QString gray = path("a/truth/depth.png");
    const QStringList before = filesIn(dir_->path());

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
        {{"focus-stack", "--batch", path("a"), "-o", path("stacks")}, 1, "no sub-folder"},
        {{"info", shot(0), path("gone.png")}, 1, path("gone.png")},
        {{"info", path("notes.png")}, 1, path("notes.png")},
        {{"convert", shot(0), "-o", out, "--format", "cmyk"}, 2, "unknown format 'cmyk'"},
        {{"convert", gray, "-o", out, "--format", "argb", "--plain"}, 1, "gray 8u to argb 8u"},
        {{"convert", shot(0), "-o", out, "--channel", "32F"}, 1, ".vexa"},
        {{"convert", path("damaged.vexa"), "-o", out}, 1, path("damaged.vexa")},
        {{"histogram", shot(0), "--bins", "16"}, 2, "bins"},
        {{"filter", shot(0), "swirl", "-o", out}, 2, "unknown operation 'swirl'"},
        {{"filter", shot(0), "sobel", "--iterations", "2", "-o", out}, 2, "--iterations"},
        {{"filter", gray, "sharpen", "-o", out}, 1, "does not take GrayScale 8u images"},
        {{"transform", shot(0), "-o", out}, 2, "nothing to do"},
        {{"compare", shot(0), path("narrow.png")}, 1, "40x64"},
        {{"montage", shot(0), shot(1), "-o", out, "--labels", "one"}, 2, "--labels"},
        {{"stabilize", shot(0), shot(1)}, 2, "-o DIR"},
        {{"stabilize", shot(0), shot(1), "-o", path("st"), "--borders", "blur"}, 2, "unknown border mode 'blur'"},
        {{"stabilize", shot(0), shot(0), "-o", path("st")}, 2, "two frames are named"},
        {{"stabilize", shot(0), path("narrow.png"), "-o", path("st")}, 1, "but the first frame is 40x64"},
        {{"panorama", shot(0), "-o", out}, 2, "at least two tiles"},
        {{"panorama", shot(0), shot(1), "-o", out, "--mode", "wide"}, 2, "unknown mode 'wide'"},
        {{"panorama", shot(0), path("narrow.png"), "-o", out, "--mode", "scans"}, 1, "cannot join the tiles"},
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
    // The image size limit from VEXA_SIZE_LIMIT: a file over it is refused naming it and how to raise it.
    qputenv("VEXA_SIZE_LIMIT", "1K");
    const ToolRun over = vexa({"convert", shot(0), "-o", out});
    qputenv("VEXA_SIZE_LIMIT", "lots");
    const ToolRun malformed = vexa({"info", shot(0)});
    qunsetenv("VEXA_SIZE_LIMIT");
    EXPECT_EQ(over.code, 1);
    EXPECT_TRUE(over.err.contains("over the size limit of 1.0 KiB (VEXA_SIZE_LIMIT raises it, e.g. VEXA_SIZE_LIMIT=1G)"))
        << over.err.toStdString();
    EXPECT_EQ(malformed.code, 2);
    EXPECT_TRUE(malformed.err.contains("VEXA_SIZE_LIMIT='lots' is not a size")) << malformed.err.toStdString();
    EXPECT_EQ(filesIn(dir_->path()), before);
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
    EXPECT_EQ(filesIn(path("a")), kShots) << "the folder holds the shots alone";

    VImage depth;
    ASSERT_TRUE(depth.load(path("a/truth/depth.png")));
    EXPECT_EQ(depth.format(), VEXA::GrayScale);
    EXPECT_EQ(depth.channelType(), VEXA::Channel8u);
    EXPECT_EQ(depth.size(), QSize(96, 64));
    double nearest = 0, farthest = 0;
    cv::minMaxLoc(cv::Mat(64, 96, CV_8U, depth.rawData(), size_t(depth.bytesPerLine())), &nearest, &farthest);
    EXPECT_EQ(nearest, 0);
    EXPECT_EQ(farthest, 255);

    ASSERT_EQ(vexa(QStringList{"sample", "focus-stack", path("other"), "--seed", "2"} + kSeries).code, 0);
    EXPECT_NE(fileBytes(path("a/truth/truth.png")), fileBytes(path("other/truth/truth.png")));
    EXPECT_NE(fileBytes(path("a/truth/depth.png")), fileBytes(path("other/truth/depth.png")));
}

TEST_F(VexaTool, MergeIsCloserToTheSharpSceneThanEveryShot)
{
    ASSERT_EQ(series_.code, 0) << series_.err.toStdString();
    const ToolRun run = vexa({"focus-stack", shot(0), shot(1), shot(2), "-o", path("merged.png"), "--json"});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    const QJsonObject report = QJsonDocument::fromJson(run.out).object();
    EXPECT_EQ(report["shots"].toInt(), 3);
    EXPECT_EQ(report["width"].toInt(), 96);
    EXPECT_EQ(report["method"].toString(), "depth-map");
    EXPECT_GE(report["seconds"].toObject()["total"].toDouble(-1), 0);
    EXPECT_GT(report["peak_rss_mb"].toDouble(), 0);

    const cv::Mat truth = colourOf(path("a/truth/truth.png"));
    const cv::Mat merged = colourOf(path("merged.png"));
    ASSERT_EQ(merged.size(), truth.size());
    const double mergedPsnr = cv::PSNR(merged, truth);
    for (int i = 0; i < 3; ++i)
        EXPECT_GT(mergedPsnr, cv::PSNR(colourOf(shot(i)), truth)) << "shot " << i;

    // The depth map: which shot each pixel came from, as 16-bit gray, and as a picture in false colour.
    ASSERT_EQ(vexa({"focus-stack", shot(0), shot(1), shot(2), "-o", path("merged.tif"), "--method", "depth-map",
                    "--depth-map-raw", path("depth16.png"), "--depth-map", path("depth.png")})
                  .code,
              0);
    EXPECT_GT(colourOf(path("depth.png")).rows, 64) << "the picture has a colour bar under the map";
    VImage depth;
    ASSERT_TRUE(depth.load(path("depth16.png")));
    EXPECT_EQ(depth.channelType(), VEXA::Channel16u);
    double farthest = 0;
    cv::minMaxLoc(cv::Mat(64, 96, CV_16U, depth.rawData(), size_t(depth.bytesPerLine())), nullptr, &farthest);
    EXPECT_EQ(farthest, 2);
    EXPECT_TRUE(VImage::canLoad(path("merged.tif")));
}

TEST_F(VexaTool, StabilizesFramesAndJoinsOverlappingTiles)
{
    ASSERT_EQ(series_.code, 0) << series_.err.toStdString();
    ASSERT_EQ(vexa({"stabilize", shot(0), shot(1), shot(2), "-o", path("st"), "--radius", "5"}).code, 0);
    QSize frame;
    for (int i = 0; i < 3; ++i) {
        VImage steadied;
        ASSERT_TRUE(steadied.load(path(QStringLiteral("st/shot_00%1.png").arg(i))));
        frame = i == 0 ? steadied.size() : frame;
        EXPECT_EQ(steadied.size(), frame);
    }
    EXPECT_TRUE(frame.width() <= 96 && frame.height() <= 64 && !frame.isEmpty());

    // Two tiles of a larger sharp scene, overlapping by a third, joined back to about its size.
    ASSERT_EQ(vexa({"sample", "focus-stack", path("big"), "--size", "480x320", "--shots", "2"}).code, 0);
    const cv::Mat scene = colourOf(path("big/truth/truth.png"));
    ASSERT_EQ(scene.cols, 480);
    for (int i = 0; i < 2; ++i) {
        const cv::Mat tile = scene(cv::Rect(i * 180, 0, 300, 320)).clone();
        ASSERT_TRUE(QImage(tile.data, tile.cols, tile.rows, int(tile.step), QImage::Format_BGR888)
                        .save(path(QStringLiteral("tile%1.png").arg(i))));
    }
    const ToolRun run = vexa({"panorama", path("tile0.png"), path("tile1.png"), "-o", path("joined.png"), "--mode", "scans"});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    const cv::Mat joined = colourOf(path("joined.png"));
    EXPECT_NEAR(joined.cols, 480, 4);
    EXPECT_NEAR(joined.rows, 320, 4);
}

TEST_F(VexaTool, ByteArraysKeepWhatImageFilesCannotAndInfoDescribesBoth)
{
    cv::Mat depth(30, 40, CV_16U);
    cv::randu(depth, 0, 65535);
    ASSERT_TRUE(save(depth, path("depth16in.png")));
    ASSERT_EQ(vexa({"convert", path("depth16in.png"), "-o", path("float.vexa"), "--channel", "32f"}).code, 0);
    ASSERT_EQ(vexa({"convert", path("float.vexa"), "-o", path("depth16out.png"), "--channel", "16u"}).code, 0);
    VImage in, out;
    ASSERT_TRUE(in.load(path("depth16in.png")));
    ASSERT_TRUE(out.load(path("depth16out.png")));
    EXPECT_TRUE(out.isEqual(in));
    // Another depth keeps the picture (65535 is 255); --plain keeps the numbers' low bits.
    ASSERT_TRUE(save(cv::Mat(4, 4, CV_16U, cv::Scalar(38187)), path("gray16.png")));
    for (const auto& [extra, value] : {std::pair<QStringList, int>{{}, 149}, {{"--plain"}, 43}}) {
        const QStringList arguments{"convert", path("gray16.png"), "-o", path("gray8.png"), "--channel", "8u"};
        ASSERT_EQ(vexa(arguments + extra).code, 0);
        VImage eight;
        ASSERT_TRUE(eight.load(path("gray8.png")));
        EXPECT_EQ(eight.pixel(1, 1).first().toInt(), value) << extra.join(' ').toStdString();
    }
    const QJsonObject counted = jsonOf(vexa({"histogram", "--json", path("gray16.png")}));
    EXPECT_EQ(counted["components"].toObject()["gray"].toArray()[149].toInt(), 16) << "counted as the 8-bit picture";

    const QJsonArray files = QJsonDocument::fromJson(vexa({"info", "--json", "--hash", shot(0), path("float.vexa")}).out).array();
    ASSERT_EQ(files.size(), 2);
    VImage first;
    ASSERT_TRUE(first.load(shot(0)));
    const QJsonObject png = files[0].toObject(), array = files[1].toObject();
    EXPECT_EQ(png["hash"].toString().toLatin1(), first.hash().toHex());
    EXPECT_EQ(png["bytes"].toInteger(), QFileInfo(shot(0)).size());
    EXPECT_EQ(png["file_format"].toString(), "png");
    EXPECT_EQ(array["file_format"].toString() + " " + array["format"].toString() + " " + array["channel"].toString(),
              "vexa gray 32f");
}

TEST_F(VexaTool, QualityAndCompressionChangeTheFileAndNotThePixels)
{
    ASSERT_TRUE(save(cv::Mat(64, 64, CV_8UC3, cv::Scalar(10, 20, 30)), path("flat.png")));
    const auto written = [&](const QString& name, const QStringList& extra) {
        const QString in = name.endsWith(".tif") ? path("flat.png") : shot(0);
        const ToolRun run = vexa(QStringList{"convert", in, "-o", path(name)} + extra);
        EXPECT_EQ(run.code, 0) << run.err.toStdString();
        return QFileInfo(path(name)).size();
    };
    EXPECT_GT(written("q95.jpg", {"--quality", "95"}), written("q20.jpg", {"--quality", "20"}));
    EXPECT_GT(written("stored.png", {"--compression", "0"}), written("fast.png", {}));
    EXPECT_GT(written("plain.tif", {}), written("lzw.tif", {"--compression", "1"}));
    for (const char* name : {"stored.png", "fast.png"})
        EXPECT_EQ(cv::norm(colourOf(path(name)), colourOf(shot(0)), cv::NORM_INF), 0) << name;
    EXPECT_EQ(cv::norm(colourOf(path("lzw.tif")), colourOf(path("flat.png")), cv::NORM_INF), 0);
    EXPECT_EQ(vexa({"convert", shot(0), "-o", path("x.jpg"), "--quality", "101"}).code, 2);
}

TEST_F(VexaTool, MeasuresImagesAsOpenCvDoes)
{
    ASSERT_EQ(series_.code, 0) << series_.err.toStdString();
    const ToolRun same = vexa({"compare", "--json", shot(0), shot(0)});
    EXPECT_EQ(jsonOf(same)["psnr"].toString(), "inf");
    EXPECT_EQ(jsonOf(same)["ssim"].toDouble(), 1.0);
    EXPECT_EQ(jsonOf(same)["max_diff"].toDouble(-1), 0.0);

    cv::Mat changed = colourOf(shot(0));
    cv::Vec3b& pixel = changed.at<cv::Vec3b>(10, 20);
    const int before = pixel[1];
    pixel[1] = before < 128 ? 255 : 0;
    ASSERT_TRUE(save(changed, path("changed.png")));
    const ToolRun diff = vexa({"compare", "--json", shot(0), path("changed.png"), "--max-diff", "40"});
    EXPECT_EQ(jsonOf(diff)["max_diff"].toDouble(), std::abs(int(pixel[1]) - before));
    EXPECT_NEAR(jsonOf(diff)["psnr"].toDouble(), cv::PSNR(colourOf(shot(0)), changed), 1e-9);
    EXPECT_EQ(diff.code, 1);

    const QJsonObject histogram = jsonOf(vexa({"histogram", "--json", path("a/truth/depth.png"), "-o", path("plot.png")}));
    const QJsonArray counts = histogram["components"].toObject()["gray"].toArray();
    VImage depth, plot;
    ASSERT_TRUE(depth.load(path("a/truth/depth.png")));
    const cv::Mat gray(64, 96, CV_8U, depth.rawData(), size_t(depth.bytesPerLine()));
    ASSERT_EQ(counts.size(), 256);
    for (const int value : {0, 255})
        EXPECT_EQ(counts[value].toInteger(), cv::countNonZero(gray == value)) << value;
    ASSERT_TRUE(plot.load(path("plot.png")));
    EXPECT_EQ(plot.size(), QSize(960, 540));
}

TEST_F(VexaTool, FiltersAndWarpsGiveImagesOfTheRightSize)
{
    ASSERT_EQ(series_.code, 0) << series_.err.toStdString();
    const struct {
        QStringList arguments;
        QSize size;
    } cases[] = {
        {{"filter", "gaussian", "--sigma", "2"}, {96, 64}},
        {{"filter", "bilateral"}, {96, 64}},
        {{"filter", "sharpen", "--amount", "3"}, {96, 64}},
        {{"filter", "open", "--shape", "ellipse", "--size", "5"}, {96, 64}},
        {{"filter", "sobel", "--dy", "1", "--dx", "0", "--channel", "16s"}, {96, 64}},
        {{"transform", "--rotate", "90"}, {64, 96}},
        {{"transform", "--crop", "10,5,40,20"}, {40, 20}},
        {{"crop", "10,5,40,20", "--compression", "9"}, {40, 20}},
        {{"transform", "--resize", "48"}, {48, 32}},
        {{"transform", "--resize", "x16"}, {24, 16}},
        {{"transform", "--resize", "25%"}, {24, 16}},
        {{"transform", "--crop", "0,0,96,64", "--resize", "30x10"}, {30, 10}},
        {{"transform", "--rotate", "30"}, {116, 104}}, // the bounding box: 96 cos 30 + 64 sin 30 by 96 sin 30 + 64 cos 30
        {{"transform", "--scale", "0.5", "--flip", "both", "--undistort", "1e-5"}, {48, 32}},
    };
    for (const auto& c : cases) {
        const QString out = path(c.arguments.contains("16s") ? "filtered.vexa" : "filtered.png");
        const ToolRun run = vexa(QStringList{c.arguments.first(), shot(0), "-o", out} + c.arguments.mid(1));
        const QJsonObject info = QJsonDocument::fromJson(vexa({"info", "--json", out}).out).array()[0].toObject();
        EXPECT_EQ(QSize(info["width"].toInt(), info["height"].toInt()), c.size)
            << c.arguments.join(' ').toStdString() << ": " << run.err.toStdString();
    }
    // The crop is the rectangle's pixels; "-" reads standard input and writes standard output; a crop
    // outside the image, or an output into a missing folder, is refused before any work.
    const ToolRun piped = vexa({"crop", "-", "10,5,40,20", "-o", "-"}, fileBytes(shot(0)));
    ASSERT_EQ(piped.code, 0) << piped.err.toStdString();
    QFile pipedFile(path("piped.png"));
    ASSERT_TRUE(pipedFile.open(QIODevice::WriteOnly) && pipedFile.write(piped.out) == piped.out.size());
    pipedFile.close();
    EXPECT_EQ(cv::norm(colourOf(path("piped.png")), colourOf(shot(0))(cv::Rect(10, 5, 40, 20)), cv::NORM_INF), 0);
    EXPECT_EQ(vexa({"crop", shot(0), "90,5,40,20", "-o", path("c.png")}).code, 1);
    EXPECT_TRUE(vexa({"transform", shot(0), "--resize", "0x5", "-o", path("c.png")}).err.contains("--resize"));
    EXPECT_TRUE(vexa({"focus-stack", shot(0), shot(1), "-o", path("no/c.png")}).err.contains("no folder"));
}

TEST_F(VexaTool, FoldersAndBatchesMergeInNaturalOrder)
{
    ASSERT_EQ(series_.code, 0) << series_.err.toStdString();
    // shot_9, shot_10, shot_11 in natural order are shots 0, 1, 2; in plain order 10, 11, 9.
    for (const char* folder : {"p/one", "p/two", "p/lone", "p/bad"})
        ASSERT_TRUE(QDir().mkpath(path(folder)));
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(QFile::copy(shot(i), path(QStringLiteral("p/one/shot_%1.png").arg(9 + i))));
    ASSERT_TRUE(QFile::copy(shot(0), path("p/two/x.png")) && QFile::copy(shot(1), path("p/two/y.png")));
    ASSERT_TRUE(QFile::copy(shot(0), path("p/lone/x.png")) && QFile::copy(shot(0), path("p/bad/x.png")));
    ASSERT_TRUE(writeFile(path("p/bad/y.png"), fileBytes(shot(1)).left(300)));

    const QStringList depthMap{"--method", "depth-map", "--depth-map-raw"};
    ASSERT_EQ(vexa(QStringList{"focus-stack", path("p/one"), "-o", path("folder.png")} + depthMap + QStringList{path("fd.png")}).code, 0);
    ASSERT_EQ(vexa(QStringList{"focus-stack", shot(0), shot(1), shot(2), "-o", path("files.png")} + depthMap + QStringList{path("sd.png")}).code, 0);
    EXPECT_EQ(fileBytes(path("fd.png")), fileBytes(path("sd.png")));

    const ToolRun batch = vexa(QStringList{"focus-stack", "--batch", path("p"), "-o", path("merged"), "--jobs", "2"} + depthMap.mid(0, 2));
    EXPECT_EQ(batch.code, 1);
    EXPECT_TRUE(batch.err.contains(path("p/bad/y.png"))) << batch.err.toStdString();
    EXPECT_TRUE(batch.err.contains("1 of 3 stacks failed")) << batch.err.toStdString();
    EXPECT_EQ(filesIn(path("merged")), QStringList({"one.png", "two.png"}));
    EXPECT_EQ(fileBytes(path("merged/one.png")), fileBytes(path("folder.png")));

    // The montage the demo makes: a shot, the merge and its depth map in false colour.
    ASSERT_EQ(vexa({"montage", shot(0), path("folder.png"), path("fd.png"), "-o", path("montage.png")}).code, 0);
    const cv::Mat montage = colourOf(path("montage.png"));
    ASSERT_EQ(montage.size(), cv::Size(16 + 3 * (96 + 16), 16 + 64 + 26 + 34 + 16));
    const cv::Vec3b mapped = montage.at<cv::Vec3b>(16 + 32, 16 + 2 * (96 + 16) + 48);
    EXPECT_FALSE(mapped[0] == mapped[1] && mapped[1] == mapped[2]) << "the depth map is not in false colour";
    ASSERT_EQ(vexa({"montage", shot(0), shot(1), path("fd.png"), "--columns", "2", "-o", path("grid.png")}).code, 0);
    EXPECT_EQ(colourOf(path("grid.png")).size(), cv::Size(16 + 2 * (96 + 16), 16 + 2 * (64 + 26 + 34) + 16 + 16));
}

TEST_F(VexaTool, FoldersTakeTheirShotsAndNameTheOtherFiles)
{
    ASSERT_EQ(series_.code, 0) << series_.err.toStdString();
    ASSERT_TRUE(QDir().mkpath(path("s")));
    QStringList shots;
    for (int i = 0; i < 3; ++i) {
        shots << path(QStringLiteral("s/shot_%1.png").arg(i));
        ASSERT_TRUE(QFile::copy(shot(i), shots.last()));
    }
    ASSERT_TRUE(QFile::copy(path("a/truth/depth.png"), path("s/depth.png")));
    ASSERT_TRUE(VImage(40, 64).save(path("s/small.png")));
    ASSERT_TRUE(writeFile(path("s/notes.txt"), "focused near to far\n"));
    const QJsonArray strays{QJsonObject{{"file", path("s/depth.png")}, {"reason", "other layout gray 8u"}},
                            QJsonObject{{"file", path("s/notes.txt")}, {"reason", "not an image"}},
                            QJsonObject{{"file", path("s/small.png")}, {"reason", "other size 40x64"}}};

    const ToolRun run = vexa({"focus-stack", path("s"), "-o", path("s.png"), "--json"});
    ASSERT_EQ(run.code, 0) << run.err.toStdString();
    EXPECT_EQ(jsonOf(run)["files"].toArray(), QJsonArray::fromStringList(shots));
    EXPECT_EQ(jsonOf(run)["skipped"].toArray(), strays);
    const ToolRun strict = vexa({"focus-stack", path("s"), "-o", path("strict.png"), "--strict"});
    EXPECT_EQ(strict.code, 1);
    EXPECT_FALSE(QFile::exists(path("strict.png")));
    for (const QJsonValue& stray : strays) {
        const QString file = stray["file"].toString(), reason = stray["reason"].toString();
        EXPECT_TRUE(run.err.contains(file + ": " + reason)) << run.err.toStdString();
        EXPECT_TRUE(strict.err.contains(file + " (" + reason + ")")) << strict.err.toStdString();
    }
}

TEST_F(VexaTool, CtrlCStopsTheWorkAndLeavesNoOutput)
{
    // A median the size of a photo: seconds of work, which the interruption cuts short.
    QTemporaryDir dir;
    ASSERT_TRUE(writeFile(dir.filePath("big.vexa"), noiseBytes(3200, 2400)));
    // Interrupted in the work, and in the middle of writing its file (noise deflated as hard as it goes).
    const struct {
        QStringList arguments;
        const char* shown;
    } cases[] = {{{"filter", dir.filePath("big.vexa"), "median", "--size", "31", "-o", dir.filePath("out.png")}, "% median"},
                 {{"convert", dir.filePath("big.vexa"), "-o", dir.filePath("out.png"), "--compression", "9"}, "% writing"}};
    for (const auto& c : cases) {
        const ToolRun run = vexaInterruptedAt(c.arguments, c.shown);
        EXPECT_EQ(run.code, 1) << c.shown;
        // The bar is erased before the message, which then stands alone.
        EXPECT_EQ(run.err.mid(run.err.lastIndexOf("\033[K") + 3), "vexa: cancelled\n") << run.err.toStdString();
        // Neither the result nor a temporary: the run stopped before writing, or removed what it wrote.
        EXPECT_EQ(filesIn(dir.path()), QStringList{"big.vexa"}) << c.shown;
    }
}

TEST_F(VexaTool, AFailedWriteSaysWhyAndLeavesNothing)
{
    // Over the process's file size limit (as on a full disk, the write fails part way), on a path that
    // cannot hold files: one line, exit code 1, no output and no temporary left.
    QTemporaryDir dir;
    ASSERT_TRUE(writeFile(path("noise.vexa"), noiseBytes(256, 256)));
    for (const QString name : {"out.png", "out.tif", "out.jpg", "out.vexa"}) {
        QProcess shell;
        shell.start("/bin/sh", {"-c", "ulimit -f 8 && exec \"$0\" \"$@\"", VEXA_TOOL_PATH, "convert", path("noise.vexa"), "-o",
                                dir.filePath(name), "--quality", "100"});
        ASSERT_TRUE(shell.waitForFinished(60000));
        const QString err = QString::fromLocal8Bit(shell.readAllStandardError());
        EXPECT_EQ(shell.exitCode(), 1) << name.toStdString() << ": " << err.toStdString();
        EXPECT_TRUE(err.contains("file size limit of ") && err.contains(" bytes (ulimit -f)") && err.count('\n') == 1)
            << name.toStdString() << ": " << err.toStdString();
        EXPECT_TRUE(filesIn(dir.path()).isEmpty()) << name.toStdString();
    }
    // Commands that write a folder of files take back the files and the folders they made.
    const QStringList folderCommands[] = {
        {"sample", "focus-stack", dir.filePath("new/series"), "--size", "480x320", "--shots", "2"},
        {"stabilize", shot(0), shot(1), shot(2), "-o", dir.filePath("new/frames")}};
    for (const QStringList& command : folderCommands) {
        QProcess shell;
        shell.start("/bin/sh", QStringList{"-c", "ulimit -f 2 && exec \"$0\" \"$@\"", VEXA_TOOL_PATH} + command);
        ASSERT_TRUE(shell.waitForFinished(60000));
        EXPECT_EQ(shell.exitCode(), 1) << command.first().toStdString();
        EXPECT_FALSE(QFileInfo::exists(dir.filePath("new"))) << command.first().toStdString();
    }
    const ToolRun unwritable = vexa({"convert", shot(0), "-o", "/proc/vexa-out.png"});
    EXPECT_EQ(unwritable.code, 1);
    EXPECT_TRUE(unwritable.err.startsWith("vexa: /proc/vexa-out.png: cannot write")) << unwritable.err.toStdString();
}

} // namespace
