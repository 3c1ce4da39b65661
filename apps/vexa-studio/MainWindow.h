// The window: shots as thumbnails on the left with the stacking settings, the viewer in the middle (the
// result, a before/after split with the selected shot, or the depth map), the histogram of the view on the
// right, and the tools in a menu. Long work runs on the StackWorker; the window stays usable meanwhile.
#pragma once

#include "StackWorker.h"
#include "ViewWorker.h"

#include <QMainWindow>
#include <QTimer>
#include <QUndoStack>

class QActionGroup;
class QComboBox;
class QLabel;
class QListWidget;
class QProgressBar;
class QToolBar;
class QPushButton;

namespace studio {

class HistogramWidget;
class ImageViewer;
class BatchDialog;
class RetouchPanel;
class ShotList;
class ToolsMenu;

// Installs the library's catalogue and the application's for "en" or "ru"; false for another language.
bool installTranslations(const QString& language);

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    // Opens image files and folders (a folder's images) as the shots, in natural order of their names, and
    // reads their thumbnails on the worker; the result so far stays until a new stack replaces it.
    bool openPaths(const QStringList& paths);

    // Every shot opened, in stacking order.
    QStringList shots() const;
    const VImage& result() const { return result_; }
    const VImage& depthMap() const { return depth_; }
    bool isBusy() const { return worker_.isBusy(); }
    RetouchPanel* retouchPanel() const { return retouch_; }
    BatchDialog* batchDialog() const { return batch_; }
    // Writes an image on the worker, with the first shot's metadata when it is the result; false while
    // other work runs. The outcome is shown as a message.
    bool saveAs(const VImage& image, const QString& file);
    // The histogram follows the view a moment after it changes, once the view has settled: true until then.
    bool isHistogramPending() const;
    // Whether the selected shot is still being read for the view.
    bool isReadingShot() const { return view_.pendingShots() > 0; }

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void createActions();
    void createPanels();
    void openShotsDialog();
    void openFolderDialog();
    void saveImage(const VImage& image, const QString& title, const QString& suggestedName);
    void openBatch();
    // The settings kept between runs (QSettings): the window's layout, the stack's method and alignment,
    // the folders last used, the saving options and the brush.
    void readSettings();
    void writeSettings() const;
    void createCropBar();
    void previewTool(const ToolFunction& tool);
    void applyCrop();
    QString settingsText() const;
    void startStack();
    StackRequest stackRequest() const;
    void stackFailed(const JobResult& job);
    void updateStackButton();
    void startTool(const QString& title, const ToolFunction& tool);
    void thumbnailRead(int index, const QImage& thumbnail, const QString& error);
    void jobFinished(const JobResult& job);
    void setResult(const VImage& image);
    void setBusy(bool busy);
    void updateView();
    void updateHistogram();
    // The selected shot (the first when none is) as read and as shown, once read: asking for another
    // starts reading it on a thread of the pool, and the view follows when it is in.
    VImage selectedShot(QString* name = nullptr, QImage* shown = nullptr);
    void showError(const QString& title, const QString& text);
    void shotRead(const QString& file, const VImage& shot, const QImage& shown);

    QUndoStack undo_;
    QStringList readErrors_;
    VImage result_, depth_;
    QStringList stackFiles_; // the shots of the last stack made, in its order
    VImageBlender::MultifocusMethod stackMethod_ = VImageBlender::MultifocusDepthMap;
    Alignment stackAlignment_ = VImageBlender::AlignAuto;
    std::shared_ptr<const VImageBlender> stackBlender_; // the last stack's, kept for retouching
    VImageHeader stackFirst_;                           // its first shot's layout, which later shots take
    StackRequest pendingStack_;                         // the stack the worker is making
    bool preparingShot_ = false; // the worker's job prepares a shot for the brush, which may meanwhile paint
    QImage resultShown_;
    QImage previewBase_; // what the view showed when a tool's preview began; null without a preview
    int depthShots_ = 0;
    QString cachedShotFile_;
    QStringList thumbnailFiles_; // the files of the thumbnails being read, in the order they come
    VImage cachedShot_;
    QImage cachedShown_;
    QString readingFile_; // the shot asked of the view worker last
    QString lastFolder_;
    QString lastSaveFolder_;
    SaveSettings saveSettings_;
    BatchDialog* batch_ = nullptr;

    ImageViewer* viewer_ = nullptr;
    HistogramWidget* histogram_ = nullptr;
    ShotList* shotList_ = nullptr;
    QComboBox* methodBox_ = nullptr;
    QComboBox* alignBox_ = nullptr;
    QPushButton* stackButton_ = nullptr;
    QPushButton* cancelButton_ = nullptr;
    QProgressBar* progressBar_ = nullptr;
    QLabel* stageLabel_ = nullptr;
    QLabel* sizeLabel_ = nullptr;
    QLabel* zoomLabel_ = nullptr;
    ToolsMenu* tools_ = nullptr;
    RetouchPanel* retouch_ = nullptr;
    QActionGroup* viewModes_ = nullptr;
    QAction* resultAction_ = nullptr;
    QAction* splitAction_ = nullptr;
    QAction* depthAction_ = nullptr;
    QAction* cropAction_ = nullptr;
    QToolBar* cropBar_ = nullptr;
    QComboBox* cropRatioBox_ = nullptr;
    QLabel* cropSizeLabel_ = nullptr;
    QList<QAction*> idleOnly_; // actions that start work or change the image: off while the worker is busy
    QAction* undoAction_ = nullptr;
    QAction* redoAction_ = nullptr;
    QTimer histogramTimer_;

    ViewWorker view_;
    // Last, so that it goes first: its destructor cancels and waits for a running job while the widgets
    // its signals reach still exist.
    StackWorker worker_;
};

} // namespace studio
