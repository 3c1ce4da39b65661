// The main window of vexa-studio: the shot list, the viewers, the menus and the stacking job's start,
// progress, cancel and result. Over 500 lines because it is the one widget wiring every action together;
// what the actions do lives in Tools and the shared stacking code.
#include "MainWindow.h"

#include <vexa/gen/gen_copy_image.h>
#include <vexa/imp/image_files.h>
#include <vexa/imp/qimage_support.h>

#include "BatchDialog.h"
#include "Help.h"
#include "ImageViewer.h"
#include "RetouchPanel.h"
#include "ShotList.h"
#include "Tools.h"

#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QDir>
#include <QDockWidget>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QImageReader>
#include <QInputDialog>
#include <QLabel>
#include <QListWidget>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QSettings>
#include <QStatusBar>
#include <QStyle>
#include <QToolButton>
#include <QToolBar>
#include <QTranslator>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace studio {

namespace {

constexpr int kThumbnailSize = 112;

} // namespace

bool installTranslations(const QString& language)
{
    // The library's catalogues carry its historical language numbers: 96 Russian, 31 English.
    const QString library = language == QLatin1String("ru")   ? QStringLiteral(":/Vexa/res/lang/vexa_96.qm")
                            : language == QLatin1String("en") ? QStringLiteral(":/Vexa/res/lang/vexa_31.qm")
                                                              : QString();
    if (library.isEmpty())
        return false;
    auto* translator = new QTranslator(qApp);
    if (translator->load(library))
        QCoreApplication::installTranslator(translator);
    // The application's own texts are written in English; only other languages need a catalogue.
    if (language != QLatin1String("en")) {
        auto* own = new QTranslator(qApp);
        if (own->load(QStringLiteral(":/vexa-studio/lang/vexa-studio_%1.qm").arg(language)))
            QCoreApplication::installTranslator(own);
    }
    return true;
}

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent)
{
    setWindowTitle(tr("Vexa Studio"));
    setAcceptDrops(true);
    viewer_ = new ImageViewer(this);
    viewer_->setObjectName(QStringLiteral("viewer"));
    setCentralWidget(viewer_);
    createPanels();
    createActions();

    connect(&view_, &ViewWorker::shotRead, this, &MainWindow::shotRead);
    connect(&view_, &ViewWorker::histogramCounted, this, [this](const HistogramWidget::Curves& curves) {
        // Only the answer to the latest request is drawn: the view may have moved on meanwhile.
        if (view_.pendingCounts() == 0)
            histogram_->setCurves(curves);
    });
    histogramTimer_.setSingleShot(true);
    histogramTimer_.setInterval(120);
    connect(&histogramTimer_, &QTimer::timeout, this, &MainWindow::updateHistogram);
    connect(viewer_, &ImageViewer::viewChanged, this, [this] {
        zoomLabel_->setText(viewer_->image().isNull() ? QString()
                                                      : QStringLiteral("%1%").arg(std::lround(viewer_->scale() * 100)));
        histogramTimer_.start();
    });
    connect(&worker_, &StackWorker::progressed, this, [this](double fraction, const QString& stage) {
        progressBar_->setValue(int(std::lround(fraction * 1000)));
        if (!stage.isEmpty())
            stageLabel_->setText(stage);
    });
    connect(&worker_, &StackWorker::thumbnailRead, this, &MainWindow::thumbnailRead);
    connect(retouch_, &RetouchPanel::sourceWanted, this, [this](const QString& file, int index) {
        preparingShot_ = worker_.retouchSource(file, index, stackBlender_, stackFirst_);
        if (preparingShot_)
            setBusy(true);
        else
            retouch_->sourceReady(index, VImage(), tr("Wait for the current work to finish, or cancel it."));
    });
    connect(retouch_, &RetouchPanel::strokeFinished, this,
            [this](const QString& title, const VImage& before, const VImage& after) {
                undo_.push(new ImageCommand(title, before, after, [this](const VImage& image) { setResult(image); }));
            });
    connect(retouch_, &RetouchPanel::message, this,
            [this](const QString& text) { statusBar()->showMessage(text, 8000); });
    // The brush paints on the result: the view shows it (alone or beside a shot) while the brush is on.
    connect(retouch_->brushAction(), &QAction::toggled, this, [this](bool on) {
        if (on && depthAction_->isChecked()) {
            resultAction_->setChecked(true);
            updateView();
        }
    });
    connect(depthAction_, &QAction::triggered, cropAction_, [this] { cropAction_->setChecked(false); });
    connect(depthAction_, &QAction::triggered, retouch_->brushAction(),
            [this] { retouch_->brushAction()->setChecked(false); });
    connect(&worker_, &StackWorker::finished, this, &MainWindow::jobFinished);
    setBusy(false);
    updateView();
    resize(1400, 900);
    readSettings();
}

MainWindow::~MainWindow() = default;

void MainWindow::createPanels()
{
    auto* panel = new QWidget;
    auto* layout = new QVBoxLayout(panel);
    shotList_ = new ShotList(kThumbnailSize);
    shotList_->setObjectName(QStringLiteral("shotList"));
    connect(shotList_, &ShotList::selectedFileChanged, this, [this](const QString& file) {
        retouch_->setSelectedFile(file);
        updateView();
    });
    connect(shotList_, &ShotList::stackChanged, this, &MainWindow::updateStackButton);
    layout->addWidget(shotList_, 1);
    auto* shotButtons = new QHBoxLayout;
    for (QAction* action : shotList_->actions()) {
        auto* button = new QToolButton;
        button->setDefaultAction(action);
        button->setAutoRaise(true);
        shotButtons->addWidget(button);
    }
    shotButtons->addStretch(1);
    layout->addLayout(shotButtons);

    auto* form = new QFormLayout;
    methodBox_ = new QComboBox;
    methodBox_->setObjectName(QStringLiteral("methodBox"));
    methodBox_->addItem(tr("Depth map"), VImageBlender::MultifocusDepthMap);
    methodBox_->addItem(tr("Maximum sharpness"), VImageBlender::MultifocusMaxSharpness);
    methodBox_->addItem(tr("Pyramid"), VImageBlender::MultifocusPyramid);
    methodBox_->addItem(tr("Weighted, running"), VImageBlender::MultifocusWeighted);
    methodBox_->addItem(tr("Weighted, all shots"), VImageBlender::MultifocusWeightedAll);
    methodBox_->setToolTip(tr("How the shots are merged. Only the depth-map method also gives a depth map."));
    alignBox_ = new QComboBox;
    alignBox_->setObjectName(QStringLiteral("alignBox"));
    alignBox_->addItem(tr("Automatic (hand-held)"), int(VImageBlender::AlignAuto));
    alignBox_->addItem(tr("None (tripod)"), int(VImageBlender::AlignNone));
    alignBox_->addItem(tr("Keypoints"), int(VImageBlender::AlignKeypoints));
    alignBox_->addItem(tr("Local stabilization"), int(VImageBlender::AlignLocal));
    alignBox_->setToolTip(tr("Line the shots up with the first before merging them. Automatic follows focus breathing, "
                             "shake and parallax, and leaves shots that did not move as they are."));
    // The boxes may shrink below their longest entry, so that the labels before them never do.
    for (QComboBox* box : {methodBox_, alignBox_}) {
        box->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        box->setMinimumContentsLength(8);
    }
    form->addRow(tr("Method:"), methodBox_);
    form->addRow(tr("Alignment:"), alignBox_);
    layout->addLayout(form);

    auto* retouchGroup = new QGroupBox(tr("Retouch"));
    auto* retouchLayout = new QVBoxLayout(retouchGroup);
    retouch_ = new RetouchPanel(viewer_);
    retouch_->setObjectName(QStringLiteral("retouchPanel"));
    retouchLayout->addWidget(retouch_);
    layout->addWidget(retouchGroup);

    auto* buttons = new QHBoxLayout;
    stackButton_ = new QPushButton(tr("&Stack"));
    stackButton_->setObjectName(QStringLiteral("stackButton"));
    connect(stackButton_, &QPushButton::clicked, this, &MainWindow::startStack);
    cancelButton_ = new QPushButton(tr("Cancel"));
    cancelButton_->setObjectName(QStringLiteral("cancelButton"));
    connect(cancelButton_, &QPushButton::clicked, this, [this] {
        worker_.cancel();
        stageLabel_->setText(tr("cancelling..."));
    });
    buttons->addWidget(stackButton_, 1);
    buttons->addWidget(cancelButton_);
    layout->addLayout(buttons);
    progressBar_ = new QProgressBar;
    progressBar_->setObjectName(QStringLiteral("progressBar"));
    progressBar_->setRange(0, 1000);
    progressBar_->setTextVisible(false);
    layout->addWidget(progressBar_);
    stageLabel_ = new QLabel;
    stageLabel_->setObjectName(QStringLiteral("stageLabel"));
    stageLabel_->setWordWrap(true);
    layout->addWidget(stageLabel_);

    auto* shotsDock = new QDockWidget(tr("Shots"), this);
    shotsDock->setObjectName(QStringLiteral("shotsDock"));
    shotsDock->setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
    shotsDock->setWidget(panel);
    panel->setMinimumWidth(2 * (kThumbnailSize + 16) + 40);
    addDockWidget(Qt::LeftDockWidgetArea, shotsDock);

    histogram_ = new HistogramWidget;
    histogram_->setObjectName(QStringLiteral("histogram"));
    auto* histogramDock = new QDockWidget(tr("Histogram of the view"), this);
    histogramDock->setObjectName(QStringLiteral("histogramDock"));
    histogramDock->setWidget(histogram_);
    histogramDock->setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
    addDockWidget(Qt::LeftDockWidgetArea, histogramDock);
    resizeDocks({histogramDock}, {170}, Qt::Vertical);

    sizeLabel_ = new QLabel;
    zoomLabel_ = new QLabel;
    zoomLabel_->setMinimumWidth(60);
    statusBar()->addPermanentWidget(sizeLabel_);
    statusBar()->addPermanentWidget(zoomLabel_);
}

void MainWindow::createActions()
{
    const auto make = [this](const QString& text, const char* name, const QKeySequence& key = QKeySequence()) {
        auto* action = new QAction(text, this);
        action->setObjectName(QLatin1String(name));
        action->setShortcut(key);
        return action;
    };
    QMenu* file = menuBar()->addMenu(tr("&File"));
    QAction* openShots = make(tr("&Open shots..."), "actionOpenShots", QKeySequence::Open);
    openShots->setIcon(style()->standardIcon(QStyle::SP_DialogOpenButton));
    connect(openShots, &QAction::triggered, this, &MainWindow::openShotsDialog);
    QAction* openFolder =
        make(tr("Open &folder..."), "actionOpenFolder", QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O));
    openFolder->setIcon(style()->standardIcon(QStyle::SP_DirOpenIcon));
    connect(openFolder, &QAction::triggered, this, &MainWindow::openFolderDialog);
    QAction* save = make(tr("&Save result..."), "actionSave", QKeySequence::Save);
    save->setIcon(style()->standardIcon(QStyle::SP_DialogSaveButton));
    connect(save, &QAction::triggered, this, [this] {
        // Named after the stack's folder, where there is one.
        const QString folder = stackFiles_.isEmpty() ? QString() : QFileInfo(stackFiles_.first()).dir().dirName();
        saveImage(result_, tr("Save result"), folder.isEmpty() ? tr("result") : folder + QStringLiteral("-stacked"));
    });
    QAction* saveDepth = make(tr("Save &depth map..."), "actionSaveDepth");
    connect(saveDepth, &QAction::triggered, this, [this] { saveImage(depth_, tr("Save depth map"), tr("depth-map")); });
    QAction* batch = make(tr("&Batch stacking..."), "actionBatch", QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_B));
    connect(batch, &QAction::triggered, this, &MainWindow::openBatch);
    QAction* quit = make(tr("&Quit"), "actionQuit", QKeySequence::Quit);
    connect(quit, &QAction::triggered, this, &QWidget::close);
    file->addActions({openShots, openFolder});
    file->addSeparator();
    file->addActions({save, saveDepth});
    file->addSeparator();
    file->addAction(batch);
    file->addSeparator();
    file->addAction(quit);
    idleOnly_ << openShots << openFolder << save << saveDepth << shotList_->actions();

    QMenu* edit = menuBar()->addMenu(tr("&Edit"));
    undoAction_ = undo_.createUndoAction(this, tr("&Undo"));
    undoAction_->setObjectName(QStringLiteral("actionUndo"));
    undoAction_->setShortcut(QKeySequence::Undo);
    redoAction_ = undo_.createRedoAction(this, tr("&Redo"));
    redoAction_->setObjectName(QStringLiteral("actionRedo"));
    redoAction_->setShortcut(QKeySequence::Redo);
    undoAction_->setProperty("shortcutName", tr("Undo"));
    redoAction_->setProperty("shortcutName", tr("Redo"));
    edit->addActions({undoAction_, redoAction_});
    edit->addSeparator();
    edit->addAction(retouch_->brushAction());
    cropAction_ = make(tr("&Crop"), "actionCrop", QKeySequence(Qt::Key_C));
    cropAction_->setCheckable(true);
    cropAction_->setToolTip(tr("Crop the result: drag a rectangle, free or at a fixed ratio, then press Enter (C)."));
    edit->addAction(cropAction_);
    idleOnly_ << cropAction_;
    // Cropping and the brush both take the left button over the result, which the view then shows.
    connect(cropAction_, &QAction::toggled, this, [this](bool on) {
        if (on) {
            retouch_->brushAction()->setChecked(false);
            if (!resultAction_->isChecked() && !splitAction_->isChecked()) {
                resultAction_->setChecked(true);
                updateView();
            }
        }
        viewer_->setCropMode(on);
        cropBar_->setVisible(on);
    });
    connect(retouch_->brushAction(), &QAction::toggled, cropAction_, [this](bool on) {
        if (on)
            cropAction_->setChecked(false);
    });

    QMenu* view = menuBar()->addMenu(tr("&View"));
    viewModes_ = new QActionGroup(this);
    resultAction_ = make(tr("&Result"), "actionResult", QKeySequence(Qt::CTRL | Qt::Key_R));
    splitAction_ = make(tr("&Before and after"), "actionSplit", QKeySequence(Qt::CTRL | Qt::Key_B));
    depthAction_ = make(tr("&Depth map"), "actionDepth", QKeySequence(Qt::CTRL | Qt::Key_D));
    for (QAction* mode : {resultAction_, splitAction_, depthAction_}) {
        mode->setCheckable(true);
        viewModes_->addAction(mode);
        connect(mode, &QAction::triggered, this, &MainWindow::updateView);
    }
    resultAction_->setChecked(true);
    QAction* fit = make(tr("Zoom to &fit"), "actionFit", QKeySequence(Qt::CTRL | Qt::Key_0));
    connect(fit, &QAction::triggered, viewer_, &ImageViewer::zoomToFit);
    QAction* actual = make(tr("&Actual size (100%)"), "actionActualSize", QKeySequence(Qt::CTRL | Qt::Key_1));
    connect(actual, &QAction::triggered, viewer_, &ImageViewer::zoomToActualSize);
    QAction* zoomIn = make(tr("Zoom &in"), "actionZoomIn", QKeySequence::ZoomIn);
    connect(zoomIn, &QAction::triggered, this, [this] { viewer_->zoomBy(1.25, viewer_->rect().center()); });
    QAction* zoomOut = make(tr("Zoom &out"), "actionZoomOut", QKeySequence::ZoomOut);
    connect(zoomOut, &QAction::triggered, this, [this] { viewer_->zoomBy(0.8, viewer_->rect().center()); });
    view->addActions(viewModes_->actions());
    view->addSeparator();
    view->addActions({fit, actual, zoomIn, zoomOut});

    QMenu* shotsMenu = menuBar()->addMenu(tr("S&hots"));
    shotsMenu->addActions(shotList_->actions());

    tools_ = new ToolsMenu(this);
    menuBar()->addMenu(tools_);

    QMenu* help = menuBar()->addMenu(tr("&Help"));
    QAction* guide = make(tr("&Guide"), "actionGuide", QKeySequence::HelpContents);
    connect(guide, &QAction::triggered, this, [this] { showGuide(this); });
    QAction* shortcuts = make(tr("&Keyboard shortcuts"), "actionShortcuts");
    connect(shortcuts, &QAction::triggered, this, [this] { showShortcuts(this); });
    QAction* about = make(tr("&About Vexa Studio"), "actionAbout");
    connect(about, &QAction::triggered, this, [this] { showAbout(this); });
    help->addActions({guide, shortcuts});
    help->addSeparator();
    help->addAction(about);
    connect(tools_, &ToolsMenu::toolRequested, this, &MainWindow::startTool);
    tools_->setPreview([this](const ToolFunction& tool) { previewTool(tool); });

    QToolBar* bar = addToolBar(tr("Main"));
    bar->setObjectName(QStringLiteral("mainToolBar"));
    bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    bar->addActions({openShots, openFolder, save});
    bar->addSeparator();
    bar->addActions(viewModes_->actions());
    bar->addSeparator();
    bar->addActions({fit, actual});
    bar->addSeparator();
    bar->addActions({undoAction_, redoAction_});
    bar->addSeparator();
    bar->addAction(retouch_->brushAction());
    bar->addAction(cropAction_);
    createCropBar();
}

void MainWindow::createCropBar()
{
    cropBar_ = new QToolBar(tr("Crop"), this);
    cropBar_->setObjectName(QStringLiteral("cropBar"));
    cropRatioBox_ = new QComboBox;
    cropRatioBox_->setObjectName(QStringLiteral("cropRatioBox"));
    cropRatioBox_->addItem(tr("Free"), 0.0);
    cropRatioBox_->addItem(tr("As the image"), -1.0);
    for (const auto& [w, h] : {std::pair{1, 1}, {3, 2}, {2, 3}, {4, 3}, {3, 4}, {16, 9}, {9, 16}})
        cropRatioBox_->addItem(QStringLiteral("%1:%2").arg(w).arg(h), double(w) / h);
    connect(cropRatioBox_, qOverload<int>(&QComboBox::currentIndexChanged), this, [this] {
        const double ratio = cropRatioBox_->currentData().toDouble();
        const QSize size = viewer_->image().size();
        viewer_->setCropRatio(ratio < 0 && !size.isEmpty() ? double(size.width()) / size.height() : ratio);
    });
    cropSizeLabel_ = new QLabel;
    connect(viewer_, &ImageViewer::cropChanged, this, [this](const QRect& rect) {
        cropSizeLabel_->setText(
            rect.isEmpty()
                ? tr("Drag a rectangle over the image.")
                : tr("%1 × %2 at (%3, %4)").arg(rect.width()).arg(rect.height()).arg(rect.x()).arg(rect.y()));
    });
    auto* apply = new QAction(tr("Apply crop"), this);
    apply->setObjectName(QStringLiteral("actionApplyCrop"));
    apply->setShortcuts({QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)});
    connect(apply, &QAction::triggered, this, &MainWindow::applyCrop);
    auto* cancel = new QAction(tr("Cancel"), this);
    cancel->setProperty("shortcutName", tr("Cancel the crop"));
    cancel->setShortcut(QKeySequence(Qt::Key_Escape));
    connect(cancel, &QAction::triggered, cropAction_, [this] { cropAction_->setChecked(false); });
    cropBar_->addWidget(new QLabel(tr("Ratio:")));
    cropBar_->addWidget(cropRatioBox_);
    cropBar_->addAction(apply);
    cropBar_->addAction(cancel);
    cropBar_->addWidget(cropSizeLabel_);
    addToolBar(Qt::TopToolBarArea, cropBar_);
    insertToolBarBreak(cropBar_);
    cropBar_->hide();
}

void MainWindow::previewTool(const ToolFunction& tool)
{
    if (!tool) {
        previewBase_ = QImage();
        updateView();
        return;
    }
    if (previewBase_.isNull())
        previewBase_ = viewer_->image();
    const QRect area = viewer_->visibleRect();
    if (previewBase_.isNull() || area.isEmpty())
        return;
    // The part in view, at most about 2 megapixels of it (a zoomed-out view of a large image is reduced
    // first), so that a preview stays a few tens of milliseconds on this thread.
    QImage part = previewBase_.copy(area);
    const double pixels = double(area.width()) * area.height(), most = 2.0e6;
    if (pixels > most)
        part = part.scaled((QSizeF(area.size()) * std::sqrt(most / pixels)).toSize(), Qt::IgnoreAspectRatio,
                           Qt::SmoothTransformation);
    VImage changed;
    if (!tool(VEXA::fromQImage(part), &changed) || changed.isEmpty())
        return; // a setting the tool refuses leaves the view as it was
    QImage shown = displayImage(changed);
    if (shown.size() != part.size())
        return;
    if (part.size() != area.size())
        shown = shown.scaled(area.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    viewer_->patchImage(shown.convertToFormat(previewBase_.format()), area.topLeft());
}

void MainWindow::applyCrop()
{
    const QRect rect = viewer_->cropRect();
    if (rect.isEmpty()) {
        statusBar()->showMessage(tr("Drag a rectangle over the image first."), 5000);
        return;
    }
    cropAction_->setChecked(false);
    startTool(tr("Crop"), [rect](const VImage& source, VImage* result) {
        result->create(rect.width(), rect.height(), source.format(), source.channelType(), source.origin(),
                       source.rowsAlignment());
        if (result->isEmpty())
            return result->status();
        return VEXA::copyImageUsingRois(source, result, {rect.x(), rect.y(), rect.width(), rect.height()},
                                        {0, 0, rect.width(), rect.height()});
    });
}

void MainWindow::openShotsDialog()
{
    QStringList patterns;
    for (const QByteArray& suffix : QImageReader::supportedImageFormats())
        patterns << QStringLiteral("*.") + QString::fromLatin1(suffix);
    const QStringList files = QFileDialog::getOpenFileNames(this, tr("Open shots"), lastFolder_,
                                                            tr("Images (%1)").arg(patterns.join(QLatin1Char(' '))));
    if (!files.isEmpty())
        openPaths(files);
}

void MainWindow::openFolderDialog()
{
    const QString folder = QFileDialog::getExistingDirectory(this, tr("Open a folder of shots"), lastFolder_);
    if (!folder.isEmpty())
        openPaths({folder});
}

bool MainWindow::openPaths(const QStringList& paths)
{
    if (worker_.isBusy()) {
        statusBar()->showMessage(tr("Wait for the current work to finish, or cancel it."), 5000);
        return false;
    }
    const QStringList files = imageFiles(paths);
    if (files.isEmpty()) {
        showError(tr("No images"), tr("No image files were found in:\n%1").arg(paths.join(QLatin1Char('\n'))));
        return false;
    }
    lastFolder_ = QFileInfo(files.first()).absolutePath();
    cachedShotFile_.clear();
    cachedShot_ = VImage();
    readErrors_.clear();
    shotList_->setFiles(files);
    thumbnailFiles_ = files;
    retouch_->setSelectedFile(shotList_->selectedFile());
    setBusy(true);
    worker_.readShots(files, kThumbnailSize);
    updateStackButton();
    updateView();
    return true;
}

void MainWindow::thumbnailRead(int index, const QImage& thumbnail, const QString& error)
{
    const QString file = thumbnailFiles_.value(index);
    shotList_->setThumbnail(file, thumbnail, error);
    if (!error.isEmpty())
        readErrors_ << tr("%1: %2").arg(QFileInfo(file).fileName(), error);
}

QStringList MainWindow::shots() const { return shotList_->files(); }

void MainWindow::updateStackButton()
{
    const int all = shotList_->count(), included = int(shotList_->includedFiles().size());
    stackButton_->setText(included == all ? tr("&Stack") : tr("&Stack %1 of %2").arg(included).arg(all));
}

// A stack that only adds shots after those of the last one, merged the same way, goes on from its blender.
StackRequest MainWindow::stackRequest() const
{
    StackRequest request;
    request.files = shotList_->includedFiles();
    request.method = VImageBlender::MultifocusMethod(methodBox_->currentData().toInt());
    request.alignment = Alignment(alignBox_->currentData().toInt());
    const bool extends = stackBlender_ && request.method == stackMethod_ && request.alignment == stackAlignment_ &&
                         request.files.size() > stackFiles_.size() &&
                         request.files.mid(0, stackFiles_.size()) == stackFiles_;
    if (extends) {
        request.resume = stackBlender_;
        request.firstShot = stackFirst_;
    }
    return request;
}

void MainWindow::startStack()
{
    if (shotList_->count() == 0) {
        showError(tr("No shots"), tr("Open the shots first: File > Open shots, or drop image files or a folder "
                                     "on the window."));
        return;
    }
    const StackRequest request = stackRequest();
    if (request.files.isEmpty()) {
        showError(tr("No shots"), tr("Every shot is left out: tick the boxes of the shots to stack."));
        return;
    }
    if (worker_.stack(request)) {
        pendingStack_ = request;
        setBusy(true);
        if (request.resume)
            stageLabel_->setText(
                tr("Adding %n shot(s) to the last stack...", nullptr, int(request.files.size() - stackFiles_.size())));
    }
}

void MainWindow::startTool(const QString& title, const ToolFunction& tool)
{
    // Without a result the tools work on the selected shot, which then becomes the result.
    const QString file = shotList_->selectedFile();
    if (result_.isEmpty() && file.isEmpty()) {
        showError(title, tr("There is no image to work on: open shots, or stack them first."));
        return;
    }
    const bool started = result_.isEmpty() ? worker_.runTool(title, file, tool) : worker_.runTool(title, result_, tool);
    if (started)
        setBusy(true);
}

void MainWindow::jobFinished(const JobResult& job)
{
    preparingShot_ = false;
    setBusy(false);
    if (job.cancelled) {
        stageLabel_->setText(tr("Cancelled; nothing was changed."));
        if (job.kind == JobResult::RetouchSource)
            retouch_->sourceReady(job.shots, VImage(), tr("Cancelled."));
        return;
    }
    switch (job.kind) {
    case JobResult::ReadShots:
        stageLabel_->setText(tr("%n shot(s) opened.", nullptr, shotList_->count()));
        if (!readErrors_.isEmpty())
            showError(tr("Some shots cannot be read"), readErrors_.join(QLatin1Char('\n')));
        break;
    case JobResult::Stack:
        if (!job.error.isEmpty()) {
            stageLabel_->setText(tr("Stacking failed."));
            stackFailed(job);
            break;
        }
        stackFiles_ = pendingStack_.files;
        stackMethod_ = pendingStack_.method;
        stackAlignment_ = pendingStack_.alignment;
        // A new stack starts a new history: the steps before it were on another image.
        undo_.clear();
        depth_ = job.depth;
        depthShots_ = job.shots;
        setResult(job.image);
        stackBlender_ = job.blender;
        stackFirst_ = job.firstShot;
        retouch_->setStack(job.blender, stackFiles_, job.depth);
        stageLabel_->setText(tr("%n shot(s) stacked.", nullptr, job.shots));
        break;
    case JobResult::Save:
        if (!job.error.isEmpty()) {
            showError(tr("Cannot save %1").arg(job.title), job.error);
            break;
        }
        stageLabel_->setText(tr("Saved %1.").arg(job.title));
        statusBar()->showMessage(
            job.warning.isEmpty() ? tr("Saved %1").arg(QDir::toNativeSeparators(job.saved)) : job.warning, 8000);
        break;
    case JobResult::RetouchSource:
        retouch_->sourceReady(job.shots, job.image, job.error);
        stageLabel_->setText(job.error.isEmpty() ? tr("Shot %1 ready for the brush.").arg(job.shots + 1) : job.error);
        break;
    case JobResult::Tool:
        if (!job.error.isEmpty()) {
            stageLabel_->setText(tr("%1 failed.").arg(job.title));
            // The library's reason names no image: say which one the tool was given.
            showError(tr("%1 failed").arg(job.title), tr("On %1: %2").arg(describeImage(job.source), job.error));
            break;
        }
        undo_.push(new ImageCommand(job.title, result_.isEmpty() ? VImage() : job.source, job.image,
                                    [this](const VImage& image) { setResult(image); }));
        stageLabel_->setText(tr("%1: done.").arg(job.title));
        break;
    }
}

void MainWindow::setResult(const VImage& image)
{
    result_ = image;
    retouch_->setResult(image);
    resultShown_ = displayImage(result_);
    updateView();
}

void MainWindow::setBusy(bool busy)
{
    retouch_->setPaused(busy && !preparingShot_);
    stackButton_->setEnabled(!busy);
    cancelButton_->setEnabled(busy);
    tools_->setEnabled(!busy);
    for (QAction* action : idleOnly_)
        action->setEnabled(!busy);
    undoAction_->setEnabled(!busy && undo_.canUndo());
    redoAction_->setEnabled(!busy && undo_.canRedo());
    progressBar_->setValue(0);
    if (busy)
        stageLabel_->setText(tr("starting..."));
}

bool MainWindow::isHistogramPending() const { return histogramTimer_.isActive() || view_.pendingCounts() > 0; }

VImage MainWindow::selectedShot(QString* name, QImage* shown)
{
    const QString file = shotList_->selectedFile();
    if (name)
        *name = QFileInfo(file).fileName();
    if (file.isEmpty())
        return VImage();
    if (file == cachedShotFile_) {
        if (shown)
            *shown = cachedShown_;
        return cachedShot_;
    }
    if (file != readingFile_ || view_.pendingShots() == 0) {
        readingFile_ = file;
        view_.readShot(file);
    }
    return VImage();
}

void MainWindow::shotRead(const QString& file, const VImage& shot, const QImage& shown)
{
    cachedShotFile_ = file;
    cachedShot_ = shot;
    cachedShown_ = shown;
    updateView(); // shows it, or asks for the one selected meanwhile
}

void MainWindow::stackFailed(const JobResult& job)
{
    const QString file = pendingStack_.files.value(job.failedShot);
    QMessageBox box(QMessageBox::Warning, tr("Stacking failed"), job.error, QMessageBox::Ok, this);
    QPushButton* leaveOut =
        file.isEmpty() ? nullptr
                       : box.addButton(tr("Leave %1 out").arg(QFileInfo(file).fileName()), QMessageBox::ActionRole);
    box.exec();
    if (leaveOut && box.clickedButton() == leaveOut) {
        shotList_->setIncluded(file, false);
        statusBar()->showMessage(tr("%1 is left out; Stack again to merge the others.").arg(QFileInfo(file).fileName()),
                                 8000);
    }
}

void MainWindow::updateView()
{
    QString name;
    QImage shotShown;
    const VImage shot = selectedShot(&name, &shotShown);
    viewer_->setBeforeImage(QImage());
    if (depthAction_->isChecked()) {
        viewer_->setPlaceholder(tr("No depth map: stack the shots with the depth-map method."));
        viewer_->setImage(depthMapColours(depth_, depthShots_),
                          tr("Depth map: blue = shot 1 (near), red = shot %1 (far)").arg(depthShots_));
        sizeLabel_->setText(describeImage(depth_));
        return;
    }
    if (splitAction_->isChecked()) {
        viewer_->setPlaceholder(tr("No result yet: stack the shots to compare the result with them."));
        viewer_->setImage(resultShown_, tr("After: result"));
        if (!resultShown_.isNull())
            viewer_->setBeforeImage(shotShown, tr("Before: %1").arg(name));
    } else if (!result_.isEmpty()) {
        viewer_->setImage(resultShown_, tr("Result"));
    } else {
        viewer_->setPlaceholder(shotList_->count() == 0
                                    ? tr("Open shots (File > Open shots or Open folder), or drop image "
                                         "files or a folder here.")
                                : isReadingShot() ? tr("Reading %1...").arg(name)
                                                  : tr("This shot cannot be shown."));
        viewer_->setImage(shotShown, name);
    }
    sizeLabel_->setText(describeImage(result_.isEmpty() ? shot : result_));
}

void MainWindow::updateHistogram() { view_.countHistogram(viewer_->image(), viewer_->visibleRect()); }

void MainWindow::saveImage(const VImage& image, const QString& title, const QString& suggestedName)
{
    if (image.isEmpty()) {
        showError(title, tr("There is nothing to save yet."));
        return;
    }
    const QString folder = lastSaveFolder_.isEmpty() ? lastFolder_ : lastSaveFolder_;
    QString name =
        QFileDialog::getSaveFileName(this, title, QDir(folder).filePath(suggestedName + QStringLiteral(".png")),
                                     tr("PNG image (*.png);;TIFF image (*.tif *.tiff);;JPEG image (*.jpg);;"
                                        "All files (*)"));
    if (name.isEmpty())
        return;
    if (QFileInfo(name).suffix().isEmpty())
        name += QStringLiteral(".png");
    const QString suffix = QFileInfo(name).suffix().toLower();
    if (suffix == QLatin1String("jpg") || suffix == QLatin1String("jpeg")) {
        bool ok = false;
        const int quality = QInputDialog::getInt(this, title, tr("JPEG quality (0 to 100):"), saveSettings_.jpegQuality,
                                                 0, 100, 1, &ok);
        if (!ok)
            return;
        saveSettings_.jpegQuality = quality;
    } else if (suffix == QLatin1String("tif") || suffix == QLatin1String("tiff")) {
        const QStringList choices = {tr("LZW (lossless, smaller)"), tr("None")};
        bool ok = false;
        const QString chosen = QInputDialog::getItem(this, title, tr("TIFF compression:"), choices,
                                                     saveSettings_.tiffCompressed ? 0 : 1, false, &ok);
        if (!ok)
            return;
        saveSettings_.tiffCompressed = chosen == choices.first();
    }
    lastSaveFolder_ = QFileInfo(name).absolutePath();
    saveAs(image, name);
}

bool MainWindow::saveAs(const VImage& image, const QString& file)
{
    SaveSettings settings = saveSettings_;
    // The result carries the first shot's EXIF and colour profile; a depth map or a tool's image of a
    // single shot has no stack to take them from.
    settings.metadataFrom = image.isEqual(result_) ? stackFiles_.value(0) : QString();
    if (!worker_.save(image, file, settings))
        return false;
    setBusy(true);
    return true;
}

namespace {
QSettings storedSettings() { return QSettings(QStringLiteral("Vexa"), QStringLiteral("vexa-studio")); }
} // namespace

void MainWindow::readSettings()
{
    const QSettings stored = storedSettings();
    restoreGeometry(stored.value(QStringLiteral("window/geometry")).toByteArray());
    restoreState(stored.value(QStringLiteral("window/state")).toByteArray());
    cropBar_->hide(); // shown only while cropping, whatever the last run left
    const auto choose = [&](QComboBox* box, const QString& key) {
        const int index = box->findData(stored.value(key));
        if (index >= 0)
            box->setCurrentIndex(index);
    };
    choose(methodBox_, QStringLiteral("stack/method"));
    choose(alignBox_, QStringLiteral("stack/alignment"));
    lastFolder_ = stored.value(QStringLiteral("folders/open")).toString();
    lastSaveFolder_ = stored.value(QStringLiteral("folders/save")).toString();
    saveSettings_.jpegQuality = stored.value(QStringLiteral("save/jpegQuality"), saveSettings_.jpegQuality).toInt();
    saveSettings_.tiffCompressed =
        stored.value(QStringLiteral("save/tiffCompressed"), saveSettings_.tiffCompressed).toBool();
    Brush brush = retouch_->brush();
    brush.radius = stored.value(QStringLiteral("retouch/size"), brush.radius).toDouble();
    brush.hardness = stored.value(QStringLiteral("retouch/hardness"), brush.hardness).toDouble();
    retouch_->setBrush(brush);
}

void MainWindow::writeSettings() const
{
    QSettings stored = storedSettings();
    stored.setValue(QStringLiteral("window/geometry"), saveGeometry());
    stored.setValue(QStringLiteral("window/state"), saveState());
    stored.setValue(QStringLiteral("stack/method"), methodBox_->currentData());
    stored.setValue(QStringLiteral("stack/alignment"), alignBox_->currentData());
    stored.setValue(QStringLiteral("folders/open"), lastFolder_);
    stored.setValue(QStringLiteral("folders/save"), lastSaveFolder_);
    stored.setValue(QStringLiteral("save/jpegQuality"), saveSettings_.jpegQuality);
    stored.setValue(QStringLiteral("save/tiffCompressed"), saveSettings_.tiffCompressed);
    stored.setValue(QStringLiteral("retouch/size"), retouch_->brush().radius);
    stored.setValue(QStringLiteral("retouch/hardness"), retouch_->brush().hardness);
}

void MainWindow::openBatch()
{
    if (!batch_) {
        batch_ = new BatchDialog(
            [this] {
                StackRequest request;
                request.method = VImageBlender::MultifocusMethod(methodBox_->currentData().toInt());
                request.alignment = Alignment(alignBox_->currentData().toInt());
                request.saving = saveSettings_;
                return request;
            },
            this);
        for (QComboBox* box : {methodBox_, alignBox_})
            connect(box, qOverload<int>(&QComboBox::currentIndexChanged), batch_,
                    [this] { batch_->setSettingsText(settingsText()); });
    }
    batch_->setSettingsText(settingsText());
    batch_->show();
    batch_->raise();
}

QString MainWindow::settingsText() const
{
    return tr("Each folder is stacked with the settings of the Shots panel: %1, alignment %2.")
        .arg(methodBox_->currentText(), alignBox_->currentText().toLower());
}

void MainWindow::showError(const QString& title, const QString& text)
{
    QMessageBox::warning(this, title, text.isEmpty() ? tr("The library gave no reason.") : text);
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event)
{
    if (event->mimeData()->hasUrls() && !worker_.isBusy())
        event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event)
{
    QStringList paths;
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile())
            paths << url.toLocalFile();
    if (!paths.isEmpty() && openPaths(paths))
        event->acceptProposedAction();
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    writeSettings();
    // A running job ends at the library's next check; the worker waits for it as the window goes.
    worker_.cancel();
    event->accept();
}

} // namespace studio
