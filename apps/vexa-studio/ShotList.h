// The shots panel's list: thumbnails in stacking order, each with a checkbox that includes it in the stack,
// and the actions that manage the stack: move a shot earlier or later, make one the reference (the first,
// which alignment and exposure follow), remove shots. The order and the checkboxes are what a stack takes.
#pragma once

#include <QListWidget>

class QAction;

namespace studio {

class ShotList : public QListWidget {
    Q_OBJECT
public:
    explicit ShotList(int thumbnailSize, QWidget* parent = nullptr);

    // New shots, all included, each with a blank thumbnail until setThumbnail().
    void setFiles(const QStringList& files);
    // Every shot, in order; those included in the stack, in order.
    QStringList files() const;
    QStringList includedFiles() const;
    void setIncluded(const QString& file, bool included);
    // The selected shot's file (the first's when none is selected); empty without shots.
    QString selectedFile() const;
    // A shot's thumbnail, or the warning sign and the error in its tooltip.
    void setThumbnail(const QString& file, const QImage& thumbnail, const QString& error);

    QList<QAction*> actions() const { return {upAction_, downAction_, referenceAction_, removeAction_}; }

signals:
    // The order or the inclusion changed, or shots were removed.
    void stackChanged();
    void selectedFileChanged(const QString& file);

private:
    QListWidgetItem* itemOf(const QString& file) const;
    void moveSelected(int to);
    void updateActions();

    int thumbnailSize_;
    QAction* upAction_;
    QAction* downAction_;
    QAction* referenceAction_;
    QAction* removeAction_;
};

} // namespace studio
