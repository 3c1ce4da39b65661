// The window driven through its own widgets and actions on a virtual X server: shots dropped on it,
// stacked with the Stack button, viewed as result, split and depth map, changed by a tool and undone, and a
// long stack cancelled with the Cancel button. Screenshots go to VEXA_STUDIO_SCREENSHOTS for a person to
// look at.
#include "ImageViewer.h"
#include "BatchDialog.h"
#include "MainWindow.h"
#include "RetouchPanel.h"
#include "focus_series.h"

#include <vexa/Vexa.h>
#include <vexa/gen/gen_copy_image.h>

#include <QComboBox>
#include <QLabel>
#include <QDropEvent>
#include <QListWidget>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QTextBrowser>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QtTest>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

using namespace studio;

namespace {

constexpr int kWait = 600000; // generous: sanitizer builds on shared cores are slow

// A rendered focus series of the "steps" scene (breathing and shaking as asked), each shot scaled to `output` when one is given.
QStringList renderSeries(const QString& folder, cv::Size size, int shots, cv::Size output, const char* suffix,
                         double breathing = 0, double shake = 0)
{
    vexatool::FocusSeriesSettings settings;
    settings.breathing = breathing;
    settings.shake = shake;
    settings.size = size;
    settings.shots = shots;
    settings.depth = vexatool::DepthKind::Steps;
    const vexatool::FocusSeriesRenderer renderer(vexatool::drawScene(size, settings.seed),
                                                 vexatool::makeDepth(size, settings.depth, settings.seed), settings);
    QDir().mkpath(folder);
    QStringList files;
    for (int k = 0; k < shots; ++k) {
        cv::Mat shot = renderer.renderShot(k);
        if (!output.empty())
            cv::resize(shot, shot, output, 0, 0, cv::INTER_LINEAR);
        const QString file = QDir(folder).filePath(QStringLiteral("shot-%1.%2").arg(k + 1).arg(suffix));
        if (!QImage(shot.data, shot.cols, shot.rows, int(shot.step), QImage::Format_BGR888).save(file))
            return {};
        files << file;
    }
    return files;
}

// Drags the paths onto the window the way a file manager does.
bool drop(QWidget* window, const QStringList& paths)
{
    QMimeData mime;
    QList<QUrl> urls;
    for (const QString& path : paths)
        urls << QUrl::fromLocalFile(path);
    mime.setUrls(urls);
    const QPoint at = window->rect().center();
    QDragEnterEvent enter(at, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(window, &enter);
    QDropEvent dropped(at, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(window, &dropped);
    return enter.isAccepted() && dropped.isAccepted();
}

// Runs the action and returns the text of the message box it leads to, answering the box (with the button
// of that text, if one is named).
QString messageAfter(const std::function<void()>& action, const QString& button = QString())
{
    QString text;
    QTimer answer;
    QObject::connect(&answer, &QTimer::timeout, [&] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            text = box->text();
            QAbstractButton* chosen = nullptr;
            for (QAbstractButton* b : box->buttons())
                if (b->text() == button)
                    chosen = b;
            if (chosen)
                chosen->click();
            else
                box->accept();
        }
    });
    answer.start(20);
    action();
    return QTest::qWaitFor([&] { return !text.isEmpty(); }, kWait) ? text : QString();
}

void screenshot(QWidget* window, const char* name)
{
    QCoreApplication::processEvents(); // changes of the view still queued start the histogram's wait
    if (auto* main = qobject_cast<MainWindow*>(window))
        QTRY_VERIFY_WITH_TIMEOUT(!main->isHistogramPending(), kWait);
    QDir().mkpath(QStringLiteral(VEXA_STUDIO_SCREENSHOTS));
    QVERIFY(window->grab().save(QDir(QStringLiteral(VEXA_STUDIO_SCREENSHOTS)).filePath(QLatin1String(name))));
}

} // namespace

class TestVexaStudio : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(dir_.isValid());
#ifdef VEXA_UNDER_TSAN
        // As in the library's tests: TBB, which runs OpenCV's parallel loops, is not instrumented, and the
        // sanitizer would take every pixel its workers touch for a race.
        cv::setNumThreads(0);
#endif
        // The settings of these runs stay in the test's own folder: defaults first, nothing of a user's.
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(dir_.filePath("config")));
        window_ = std::make_unique<MainWindow>();
        window_->show();
        window_->activateWindow(); // keyboard shortcuts reach the active window only
        QVERIFY(QTest::qWaitForWindowActive(window_.get()));
    }
    void cleanupTestCase() { window_.reset(); }

    void stacksThroughTheWindow()
    {
        const QStringList files = renderSeries(dir_.filePath("small"), cv::Size(480, 360), 3, cv::Size(), "png");
        QCOMPARE(files.size(), 3);
        QVERIFY(drop(window_.get(), files));
        QCOMPARE(window_->shots(), files);
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);
        screenshot(window_.get(), "1-shots-loaded.png");

        auto* method = window_->findChild<QComboBox*>("methodBox");
        method->setCurrentIndex(method->findData(VImageBlender::MultifocusDepthMap));
        auto* align = window_->findChild<QComboBox*>("alignBox");
        QCOMPARE(align->currentData().toInt(), int(VImageBlender::AlignAuto));
        align->setCurrentIndex(align->findData(int(VImageBlender::AlignNone)));
        QTest::mouseClick(window_->findChild<QPushButton*>("stackButton"), Qt::LeftButton);
        QVERIFY(window_->isBusy());
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);

        // The same stack through the library directly, byte for byte.
        VImageBlender blender(VImageBlender::MultifocusDepthMap);
        for (const QString& file : files) {
            VImage shot;
            QVERIFY(shot.load(file));
            QVERIFY(blender.addImage(shot));
        }
        const VImage expected = blender.image();
        QVERIFY(!expected.isEmpty());
        QVERIFY(window_->result().isEqual(expected));
        QVERIFY(window_->depthMap().isEqual(blender.depthMap()));
        auto* viewer = window_->findChild<ImageViewer*>("viewer");
        QCOMPARE(viewer->image(), VEXA::toQImage(expected));
        screenshot(window_.get(), "2-result.png");

        // Before/after with the shot focused farthest, picked by a click on its thumbnail.
        auto* list = window_->findChild<QListWidget*>("shotList");
        QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier,
                          list->visualItemRect(list->item(2)).center());
        QCOMPARE(list->currentRow(), 2);
        window_->findChild<QAction*>("actionSplit")->trigger();
        QTRY_VERIFY_WITH_TIMEOUT(viewer->isSplit(), kWait); // once the shot is read
        QCOMPARE(viewer->image(), VEXA::toQImage(expected));
        screenshot(window_.get(), "3-before-after.png");

        window_->findChild<QAction*>("actionDepth")->trigger();
        QVERIFY(!viewer->isSplit());
        QCOMPARE(viewer->image().size(), expected.size());
        screenshot(window_.get(), "4-depth-map.png");

        // A tool changes the result through the worker; undo brings the stack's result back.
        window_->findChild<QAction*>("actionResult")->trigger();
        window_->findChild<QAction*>("actionRotateLeft")->trigger();
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);
        QCOMPARE(window_->result().size(), expected.size().transposed());
        QCOMPARE(viewer->image().size(), expected.size().transposed());
        window_->findChild<QAction*>("actionUndo")->trigger();
        QVERIFY(window_->result().isEqual(expected));
        QCOMPARE(viewer->image(), VEXA::toQImage(expected));
    }

    void retouchPaintsTheChosenShotAsAlignedAndUndoes()
    {
        // Shots that breathe and shake, stacked with automatic alignment: the brush paints a shot as the
        // merge aligned it.
        const QStringList files =
            renderSeries(dir_.filePath("moving"), cv::Size(480, 360), 3, cv::Size(), "png", 0.03, 2.0);
        QVERIFY(drop(window_.get(), files));
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);
        auto* align = window_->findChild<QComboBox*>("alignBox");
        align->setCurrentIndex(align->findData(int(VImageBlender::AlignAuto)));
        QTest::mouseClick(window_->findChild<QPushButton*>("stackButton"), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy() && !window_->result().isEmpty(), kWait);
        const VImage before = window_->result().copy();

        VImageBlender blender(VImageBlender::MultifocusDepthMap, VImageBlender::AlignAuto);
        blender.setKeepShotFits(true);
        QList<VImage> shots;
        for (const QString& file : files) {
            shots << VEXA::readImageFile(file);
            QVERIFY(blender.addImage(shots.last()));
        }
        QVERIFY(blender.image().isEqual(before));
        QVERIFY(blender.shotFits().at(2).resampled);
        VImage expected;
        QVERIFY(blender.alignedShot(shots[2], 2, &expected));

        auto* list = window_->findChild<QListWidget*>("shotList");
        list->setCurrentRow(2);
        auto* panel = window_->findChild<RetouchPanel*>("retouchPanel");
        panel->findChild<QSpinBox*>("brushSizeBox")->setValue(20);
        panel->findChild<QSpinBox*>("brushHardnessBox")->setValue(100);
        window_->findChild<QAction*>("actionRetouch")->trigger();
        QTRY_COMPARE_WITH_TIMEOUT(panel->readyShot(), 2, kWait);
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);

        auto* viewer = window_->findChild<ImageViewer*>("viewer");
        const QPoint from = viewer->toWidget(QPointF(120, 100)).toPoint(),
                     to = viewer->toWidget(QPointF(330, 220)).toPoint();
        QTest::mousePress(viewer, Qt::LeftButton, Qt::NoModifier, from);
        for (int i = 1; i <= 12; ++i)
            QTest::mouseMove(viewer, from + (to - from) * i / 12);
        QTest::mouseRelease(viewer, Qt::LeftButton, Qt::NoModifier, to);
        QTRY_VERIFY_WITH_TIMEOUT(!window_->result().isEqual(before), kWait);
        const VImage after = window_->result().copy();
        QCOMPARE(viewer->image(), VEXA::toQImage(after));

        // Inside the stroke the shot's pixels exactly; outside it the result untouched.
        const QPointF a = viewer->toImage(from), b = viewer->toImage(to);
        int inside = 0, outside = 0;
        for (int y = 0; y < after.height(); ++y)
            for (int x = 0; x < after.width(); ++x) {
                const QPointF p(x + 0.5, y + 0.5), ab = b - a;
                const double t = std::clamp(QPointF::dotProduct(p - a, ab) / QPointF::dotProduct(ab, ab), 0.0, 1.0);
                const QPointF q = p - (a + ab * t);
                const double d = std::hypot(q.x(), q.y());
                const auto pixel = [&](const VImage& image) {
                    return QByteArray(reinterpret_cast<const char*>(image.rawData() + y * image.bytesPerLine() + 4 * x),
                                      4);
                };
                if (d <= 17) {
                    ++inside;
                    QCOMPARE(pixel(after), pixel(expected));
                } else if (d > 21.5) {
                    ++outside;
                    QCOMPARE(pixel(after), pixel(before));
                }
            }
        QVERIFY(inside > 5000 && outside > 100000);
        screenshot(window_.get(), "5-retouched.png");

        window_->findChild<QAction*>("actionUndo")->trigger();
        QVERIFY(window_->result().isEqual(before));
        window_->findChild<QAction*>("actionRedo")->trigger();
        QVERIFY(window_->result().isEqual(after));

        // From the shot the depth map chose where the stroke starts: the first, at a point it won.
        auto* source = panel->findChild<QComboBox*>("retouchSourceBox");
        source->setCurrentIndex(source->findData(RetouchPanel::SharpestHere));
        const VImage depth = window_->depthMap();
        const auto chosenAt = [&](QPoint widgetPoint) {
            const QPoint p = viewer->toImage(widgetPoint).toPoint();
            return reinterpret_cast<const quint16*>(depth.rawData() + p.y() * depth.bytesPerLine())[p.x()];
        };
        QPoint at;
        for (int y = 30; y < depth.height() - 30 && at.isNull(); y += 10)
            for (int x = 30; x < depth.width() - 30 && at.isNull(); x += 10)
                if (chosenAt(viewer->toWidget(QPointF(x, y)).toPoint()) == 0)
                    at = viewer->toWidget(QPointF(x, y)).toPoint();
        QVERIFY(!at.isNull());
        QTest::mouseClick(viewer, Qt::LeftButton, Qt::NoModifier, at);
        QTRY_VERIFY_WITH_TIMEOUT(panel->readyShot() == 0 && !window_->isBusy(), kWait);
        QVERIFY(window_->findChild<QAction*>("actionUndo")->text().contains(QLatin1String("shot 1,")));
        window_->findChild<QAction*>("actionRetouch")->trigger();
        QCOMPARE(viewer->brushRadius(), 0.0);
    }

    void managedStacksMergeAsTheLibraryDoes()
    {
        const QDir small(dir_.filePath("small"));
        const QStringList files = {small.filePath("shot-1.png"), small.filePath("shot-2.png"),
                                   small.filePath("shot-3.png")};
        QVERIFY(drop(window_.get(), files));
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);
        auto* method = window_->findChild<QComboBox*>("methodBox");
        method->setCurrentIndex(method->findData(VImageBlender::MultifocusMaxSharpness));
        auto* align = window_->findChild<QComboBox*>("alignBox");
        align->setCurrentIndex(align->findData(int(VImageBlender::AlignNone)));
        auto* list = window_->findChild<QListWidget*>("shotList");
        auto* stack = window_->findChild<QPushButton*>("stackButton");
        auto* stage = window_->findChild<QLabel*>("stageLabel");
        QString said; // what the window says as the stack starts
        const auto stacked = [&](const QStringList& order) {
            QTest::mouseClick(stack, Qt::LeftButton);
            said = stage->text();
            if (!QTest::qWaitFor([&] { return !window_->isBusy(); }, kWait))
                return false;
            VImageBlender blender(VImageBlender::MultifocusMaxSharpness);
            for (const QString& file : order)
                if (!blender.addImage(VEXA::readImageFile(file)))
                    return false;
            return window_->result().isEqual(blender.image());
        };
        const auto select = [&](const QString& file) { list->setCurrentRow(int(window_->shots().indexOf(file))); };

        // Shot 2 left out, then added back after the others: the second stack goes on from the first.
        list->item(1)->setCheckState(Qt::Unchecked);
        QCOMPARE(stack->text(), QStringLiteral("&Stack 2 of 3"));
        QVERIFY(stacked({files[0], files[2]}));
        select(files[1]);
        window_->findChild<QAction*>("actionShotLater")->trigger();
        list->item(2)->setCheckState(Qt::Checked);
        QCOMPARE(window_->shots(), (QStringList{files[0], files[2], files[1]}));
        QVERIFY(stacked({files[0], files[2], files[1]}));
        QVERIFY2(said.startsWith(QLatin1String("Adding 1 shot")), qPrintable(said));

        // Shot 3 made the reference, shot 1 removed.
        select(files[2]);
        window_->findChild<QAction*>("actionShotReference")->trigger();
        QCOMPARE(window_->shots(), (QStringList{files[2], files[0], files[1]}));
        QVERIFY(stacked({files[2], files[0], files[1]}));
        QVERIFY2(!said.startsWith(QLatin1String("Adding")), qPrintable(said));
        select(files[0]);
        window_->findChild<QAction*>("actionShotRemove")->trigger();
        QCOMPARE(window_->shots(), (QStringList{files[2], files[1]}));
        QVERIFY(stacked({files[2], files[1]}));
        screenshot(window_.get(), "6-managed-stack.png");
        method->setCurrentIndex(method->findData(VImageBlender::MultifocusDepthMap));
    }

    void batchWritesEachStackAndGoesOnAfterACancel()
    {
        const QDir root(dir_.filePath("batch"));
        QVERIFY(renderSeries(root.filePath("a"), cv::Size(160, 120), 3, cv::Size(), "png").size() == 3);
        QVERIFY(renderSeries(root.filePath("b"), cv::Size(200, 150), 3, cv::Size(), "png").size() == 3);
        QVERIFY(renderSeries(root.filePath("c"), cv::Size(480, 360), 6, cv::Size(1600, 1200), "jpg").size() == 6);
        auto* align = window_->findChild<QComboBox*>("alignBox");
        align->setCurrentIndex(align->findData(int(VImageBlender::AlignAuto)));
        window_->findChild<QAction*>("actionBatch")->trigger();
        BatchDialog* batch = window_->batchDialog();
        QVERIFY(batch && batch->isVisible());
        batch->addFolders({root.filePath("a"), root.filePath("b")});
        QTest::mouseClick(batch->findChild<QPushButton*>("batchStart"), Qt::LeftButton);
        QVERIFY(batch->isRunning());
        QTRY_VERIFY_WITH_TIMEOUT(!batch->isRunning(), kWait);
        for (int row = 0; row < 2; ++row) {
            QCOMPARE(batch->state(row), BatchDialog::Done);
            const QString folder = root.filePath(row == 0 ? "a" : "b");
            QCOMPARE(batch->result(row), folder + "-stacked.png");
            VImageBlender blender(VImageBlender::MultifocusDepthMap, VImageBlender::AlignAuto);
            for (const QString& file : imageFiles({folder}))
                QVERIFY(blender.addImage(VEXA::readImageFile(file)));
            const VImage written = VEXA::readImageFile(batch->result(row));
            QVERIFY(written.convert(VEXA::BGR, VEXA::Channel8u)
                        .isEqual(blender.image().convert(VEXA::BGR, VEXA::Channel8u)));
        }

        // A long stack cancelled leaves nothing written; Start goes on with it.
        batch->addFolders({root.filePath("c")});
        batch->start();
        QTRY_VERIFY_WITH_TIMEOUT(batch->state(2) == BatchDialog::Running, kWait);
        screenshot(batch, "7-batch-running.png");
        QTest::mouseClick(batch->findChild<QPushButton*>("batchCancel"), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!batch->isRunning(), kWait);
        QCOMPARE(batch->state(2), BatchDialog::Cancelled);
        QVERIFY(!QFileInfo::exists(root.filePath("c-stacked.png")));
        batch->start();
        QTRY_VERIFY_WITH_TIMEOUT(!batch->isRunning(), kWait);
        QCOMPARE(batch->state(2), BatchDialog::Done);
        QCOMPARE(VEXA::readImageFile(batch->result(2)).size(), QSize(1600, 1200));
        QCOMPARE(batch->state(0), BatchDialog::Done); // done once, not again
        screenshot(batch, "8-batch-done.png");
        batch->hide();
    }

    void cropsAndSavesSixteenBits()
    {
        // 16-bit shots stay 16-bit through the depth-map merge, the crop and the file.
        const QDir deep(dir_.filePath("deep"));
        QStringList files;
        for (const QString& file : renderSeries(deep.filePath("8"), cv::Size(320, 240), 3, cv::Size(), "png")) {
            files << deep.filePath(QFileInfo(file).fileName());
            QVERIFY(VEXA::writeImageFile(VEXA::readImageFile(file).convertScaled(VEXA::BGR, VEXA::Channel16u),
                                         files.last()));
        }
        QVERIFY(drop(window_.get(), files));
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);
        auto* method = window_->findChild<QComboBox*>("methodBox");
        method->setCurrentIndex(method->findData(VImageBlender::MultifocusDepthMap));
        QTest::mouseClick(window_->findChild<QPushButton*>("stackButton"), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);
        const VImage stacked = window_->result();
        QCOMPARE(stacked.channelType(), VEXA::Channel16u);

        // A rectangle dragged at 3:2 from (40, 30) towards (250, 200): 3:2 keeps the smaller side's length.
        window_->findChild<QAction*>("actionCrop")->trigger();
        auto* ratio = window_->findChild<QComboBox*>("cropRatioBox");
        ratio->setCurrentIndex(ratio->findText("3:2"));
        auto* viewer = window_->findChild<ImageViewer*>("viewer");
        QTest::mousePress(viewer, Qt::LeftButton, Qt::NoModifier, viewer->toWidget(QPointF(40, 30)).toPoint());
        QTest::mouseMove(viewer, viewer->toWidget(QPointF(250, 200)).toPoint());
        QTest::mouseRelease(viewer, Qt::LeftButton, Qt::NoModifier, viewer->toWidget(QPointF(250, 200)).toPoint());
        const QRect rect = viewer->cropRect();
        QVERIFY2(
            std::abs(rect.width() - 1.5 * rect.height()) <= 1.5 && std::abs(rect.x() - 40) <= 1 &&
                std::abs(rect.width() - 210) <= 2,
            qPrintable(QStringLiteral("%1 %2 %3 %4").arg(rect.x()).arg(rect.y()).arg(rect.width()).arg(rect.height())));
        screenshot(window_.get(), "12-crop.png");
        window_->findChild<QAction*>("actionApplyCrop")->trigger();
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);
        const VImage cropped = window_->result();
        QCOMPARE(cropped.size(), rect.size());
        VImage expected;
        expected.create(rect.width(), rect.height(), stacked.format(), stacked.channelType(), stacked.origin(),
                        stacked.rowsAlignment());
        QVERIFY(VEXA::copyImageUsingRois(stacked, &expected, {rect.x(), rect.y(), rect.width(), rect.height()},
                                         {0, 0, rect.width(), rect.height()}));
        QVERIFY(cropped.isEqual(expected));

        for (const char* name : {"cropped.png", "cropped.tif"}) {
            const QString file = deep.filePath(name);
            QVERIFY(window_->saveAs(cropped, file));
            QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);
            const VImage written = VEXA::readImageFile(file);
            QCOMPARE(written.channelType(), VEXA::Channel16u);
            QVERIFY(written.convert(VEXA::BGR, VEXA::Channel16u).isEqual(cropped.convert(VEXA::BGR, VEXA::Channel16u)));
        }
        window_->findChild<QAction*>("actionUndo")->trigger();
        QVERIFY(window_->result().isEqual(stacked));
    }

    void cancelKeepsTheResultAndTheWindowResponsive()
    {
        const VImage before = window_->result();
        QVERIFY(!before.isEmpty());
        const QString folder = dir_.filePath("big");
        QCOMPARE(renderSeries(folder, cv::Size(480, 360), 8, cv::Size(4000, 3000), "jpg").size(), 8);
        QVERIFY(drop(window_.get(), {folder}));
        QCOMPARE(window_->shots().size(), 8);
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);

        auto* progress = window_->findChild<QProgressBar*>("progressBar");
        QTest::mouseClick(window_->findChild<QPushButton*>("stackButton"), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(progress->value() > 0, kWait);
        // The window's own event loop runs while the worker stacks: a timer fires, the view zooms.
        bool fired = false;
        QTimer::singleShot(1, this, [&] { fired = true; });
        QTRY_VERIFY_WITH_TIMEOUT(fired, kWait);
        auto* viewer = window_->findChild<ImageViewer*>("viewer");
        window_->activateWindow(); // shortcuts reach the active window only
        QVERIFY(QTest::qWaitForWindowActive(window_.get()));
        QTest::keyClick(window_.get(), Qt::Key_1, Qt::ControlModifier);
        QCOMPARE(viewer->scale(), 1.0);
        QVERIFY(window_->isBusy());
        screenshot(window_.get(), "9-stacking-big.png");

        QTest::mouseClick(window_->findChild<QPushButton*>("cancelButton"), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);
        QVERIFY(window_->result().isEqual(before));
        QCOMPARE(viewer->image(), displayImage(before));
        screenshot(window_.get(), "10-cancelled.png");
    }

    void errorsAreShownWithTheirText()
    {
        const VImage before = window_->result();
        const QString folder = dir_.filePath("broken");
        QDir().mkpath(folder);
        // A good shot, and one whose file is cut off halfway: the library's own reason must reach the user.
        QVERIFY(QFile::copy(dir_.filePath("small/shot-1.png"), folder + "/a-1.png"));
        QFile whole(dir_.filePath("small/shot-2.png")), cut(folder + "/a-2.png");
        QVERIFY(whole.open(QIODevice::ReadOnly) && cut.open(QIODevice::WriteOnly));
        cut.write(whole.readAll().left(int(whole.size() / 2)));
        cut.close();
        const QString unreadable = messageAfter([&] { QVERIFY(drop(window_.get(), {folder})); });
        QVERIFY2(unreadable.startsWith("a-2.png: ") && unreadable.size() > 12, qPrintable(unreadable));
        auto* stack = window_->findChild<QPushButton*>("stackButton");
        const QString failed = messageAfter([&] { QTest::mouseClick(stack, Qt::LeftButton); });
        QVERIFY2(failed.startsWith("a-2.png: ") && failed.size() > 12, qPrintable(failed));
        QVERIFY(window_->result().isEqual(before));

        // A shot of another size, which the stack refuses.
        QVERIFY(QImage(folder + "/a-1.png").scaled(240, 180).save(folder + "/b.png"));
        QVERIFY(drop(window_.get(), {folder + "/a-1.png", folder + "/b.png"}));
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);
        const QString refused = messageAfter([&] { QTest::mouseClick(stack, Qt::LeftButton); }, "Leave b.png out");
        QVERIFY2(refused.startsWith("b.png: ") && refused.contains(QStringLiteral("240 × 180")), qPrintable(refused));
        QVERIFY(window_->result().isEqual(before));
        // Its button left the refused shot out: the stack goes on without it.
        QCOMPARE(stack->text(), QStringLiteral("&Stack 1 of 2"));
        QTest::mouseClick(stack, Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);
        QCOMPARE(window_->result().size(), QSize(480, 360));
    }

    void theWindowAnswersWithin100msWhileStackingTwelveMegapixels()
    {
#ifdef VEXA_STUDIO_SANITIZED
        QSKIP("a sanitizer's slowdown says nothing of the window's latency");
#endif
        const QStringList files =
            renderSeries(dir_.filePath("twelve"), cv::Size(480, 360), 3, cv::Size(4000, 3000), "jpg");
        QCOMPARE(files.size(), 3);
        // The longest time the window's event loop did not come round, from the drop to the histogram of the
        // result: reading thumbnails, stacking, showing the result.
        QElapsedTimer clock;
        qint64 last = 0, worst = 0;
        QTimer tick;
        tick.setInterval(2);
        connect(&tick, &QTimer::timeout, this, [&] {
            const qint64 now = clock.elapsed();
            worst = std::max(worst, now - last);
            last = now;
        });
        clock.start();
        tick.start();
        QVERIFY(drop(window_.get(), files));
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);
        QTest::mouseClick(window_->findChild<QPushButton*>("stackButton"), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);
        QCOMPARE(window_->result().size(), QSize(4000, 3000));
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isHistogramPending(), kWait);
        QTest::qWait(100);
        tick.stop();
        qInfo("longest wait of the event loop over %lld ms of a 12-megapixel stack: %lld ms", clock.elapsed(), worst);
        QVERIFY2(worst < 100, qPrintable(QStringLiteral("%1 ms").arg(worst)));
    }

    void previewsHelpAndRememberedSettings()
    {
        // Brightness and contrast preview on the view while the dialog is open; Cancel takes it back.
        auto* viewer = window_->findChild<ImageViewer*>("viewer");
        const QImage shown = viewer->image();
        QVERIFY(!shown.isNull());
        QImage previewed;
        const auto whileOpen = [&](const std::function<void(QWidget*)>& inside) {
            QTimer::singleShot(0, [&] {
                QWidget* dialog = nullptr;
                (void)QTest::qWaitFor([&] { return (dialog = QApplication::activeModalWidget()) != nullptr; }, kWait);
                inside(dialog);
            });
            window_->findChild<QAction*>("actionBrightnessContrast")->trigger();
        };
        whileOpen([&](QWidget* dialog) {
            dialog->findChild<QSlider*>("brightnessSlider")->setValue(80);
            previewed = viewer->image();
            screenshot(window_.get(), "13-brightness-preview.png");
            qobject_cast<QDialog*>(dialog)->reject();
        });
        QVERIFY(previewed != shown);
        QCOMPARE(viewer->image(), shown);
        // OK applies it through the worker, as the preview showed.
        whileOpen([&](QWidget* dialog) {
            dialog->findChild<QSlider*>("brightnessSlider")->setValue(80);
            qobject_cast<QDialog*>(dialog)->accept();
        });
        QTRY_VERIFY_WITH_TIMEOUT(!window_->isBusy(), kWait);
        QVERIFY(viewer->image() != shown);
        window_->findChild<QAction*>("actionUndo")->trigger();

        // Help: the guide, the shortcuts as the actions have them, and the versions.
        window_->findChild<QAction*>("actionGuide")->trigger();
        auto* guide = window_->findChild<QDialog*>("guideDialog");
        QVERIFY(guide && guide->isVisible() &&
                guide->findChild<QTextBrowser*>()->toPlainText().contains("Retouch brush"));
        guide->hide();
        window_->findChild<QAction*>("actionShortcuts")->trigger();
        auto* keys = window_->findChild<QDialog*>("shortcutsDialog");
        const QString listed = keys->findChild<QTextBrowser*>()->toPlainText();
        QVERIFY2(listed.contains("Ctrl+Z") && listed.contains("Crop") && listed.contains("Retouch brush"),
                 qPrintable(listed));
        screenshot(keys, "14-shortcuts.png");
        keys->hide();
        const QString about = messageAfter([&] { window_->findChild<QAction*>("actionAbout")->trigger(); });
        QVERIFY2(about.contains("Qt " + QString::fromLatin1(qVersion())) && about.contains("OpenCV 4"),
                 qPrintable(about));

        // Settings outlive the window.
        auto* method = window_->findChild<QComboBox*>("methodBox");
        method->setCurrentIndex(method->findData(VImageBlender::MultifocusPyramid));
        window_->findChild<RetouchPanel*>("retouchPanel")->findChild<QSpinBox*>("brushSizeBox")->setValue(55);
        window_->close();
        {
            MainWindow next;
            QCOMPARE(next.findChild<QComboBox*>("methodBox")->currentData().toInt(),
                     int(VImageBlender::MultifocusPyramid));
            QCOMPARE(next.retouchPanel()->brush().radius, 55.0);
        }
        method->setCurrentIndex(method->findData(VImageBlender::MultifocusDepthMap));
        window_->show();
    }

    void russianInterface()
    {
        QVERIFY(installTranslations(QStringLiteral("ru")));
        MainWindow russian;
        const QString stack = russian.findChild<QPushButton*>("stackButton")->text();
        QVERIFY2(!stack.contains(QLatin1String("Stack")), qPrintable(stack));
        // The library's texts, such as its cancellation message, come in Russian too.
        QVERIFY(QCoreApplication::translate("QObject", "Operation cancelled") != QLatin1String("Operation cancelled"));
        russian.show();
        QVERIFY(QTest::qWaitForWindowExposed(&russian));
        screenshot(&russian, "11-russian.png");
    }

private:
    QTemporaryDir dir_;
    std::unique_ptr<MainWindow> window_;
};

QTEST_MAIN(TestVexaStudio)
#include "test_vexa_studio.moc"
