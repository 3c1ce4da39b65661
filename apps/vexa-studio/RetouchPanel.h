// The retouching brush's controls and strokes: a checkable brush, its size and hardness, and where it paints
// from (the selected shot, or the shot the depth map chose under the cursor). The shot is prepared on the
// worker (read and aligned as the stack's merge read it) and kept for the next strokes; a stroke paints into
// a copy of the result, shown live on the viewer, and enters the undo history when the button is released.
#pragma once

#include "Retouch.h"

#include <QMap>
#include <QWidget>

#include <memory>

class QAction;
class QCheckBox;
class QComboBox;
class QLabel;
class QSpinBox;

class VImageBlender;

namespace studio {

class ImageViewer;

class RetouchPanel : public QWidget {
    Q_OBJECT
public:
    enum Source { SelectedShot = 0, SharpestHere = 1 };

    RetouchPanel(ImageViewer* viewer, QWidget* parent = nullptr);

    // What the last stack left: its blender (with the shots' fits), its files in merge order and the depth
    // map (empty for methods without one). A null blender ends retouching.
    void setStack(const std::shared_ptr<const VImageBlender>& blender, const QStringList& files, const VImage& depth);
    // The image strokes paint into; a stroke in progress keeps the one it started on.
    void setResult(const VImage& result) { result_ = result; }
    // The file selected in the shot list, the brush's source in SelectedShot mode.
    void setSelectedFile(const QString& file);
    // A shot the worker prepared (or failed to: error set).
    void sourceReady(int index, const VImage& aligned, const QString& error);

    // While other work runs on the result, strokes are refused: the work's outcome would replace them.
    void setPaused(bool paused) { paused_ = paused; }
    QAction* brushAction() const { return brushAction_; }
    bool isActive() const;
    Brush brush() const;
    void setBrush(const Brush& brush);
    Source source() const;
    // The shot the brush paints from now, -1 while none is ready.
    int readyShot() const { return sources_.contains(wantedShot_) ? wantedShot_ : -1; }

signals:
    // Asks for shot `index` of the stack's files to be prepared; sourceReady() answers.
    void sourceWanted(const QString& file, int index);
    void strokeFinished(const QString& title, const VImage& before, const VImage& after);
    void message(const QString& text);

private:
    void setActive(bool active);
    void pressed(QPointF at);
    void moved(QPointF at);
    void released();
    // Makes `index` the brush's shot, asking the worker for it when it is not kept; true when ready.
    bool want(int index);
    void beginStroke();
    void show(const QRect& changed);
    QString shotName(int index) const;

    ImageViewer* viewer_;
    QAction* brushAction_ = nullptr;
    QComboBox* sourceBox_ = nullptr;
    QSpinBox* sizeBox_ = nullptr;
    QSpinBox* hardnessBox_ = nullptr;
    QLabel* stateLabel_ = nullptr;

    std::shared_ptr<const VImageBlender> blender_;
    QStringList files_;
    VImage depth_, result_;
    QString selectedFile_;
    QMap<int, VImage> sources_; // the shots prepared, at most three (one full-size image each)
    QList<int> recent_;         // their numbers, the most recently used last
    int wantedShot_ = -1;
    // A stroke begun before its shot was ready: its points, replayed when the shot arrives.
    QList<QPointF> queued_;
    bool queuedRelease_ = false;
    std::unique_ptr<RetouchStroke> stroke_;
    bool paused_ = false;
};

} // namespace studio
