#include "ShotList.h"

#include <QAction>
#include <QDir>
#include <QFileInfo>
#include <QStyle>

namespace studio {

ShotList::ShotList(int thumbnailSize, QWidget* parent) : QListWidget(parent), thumbnailSize_(thumbnailSize)
{
    setViewMode(QListView::IconMode);
    setIconSize(QSize(thumbnailSize, thumbnailSize));
    setGridSize(QSize(thumbnailSize + 16, thumbnailSize + 34));
    setResizeMode(QListView::Adjust);
    setMovement(QListView::Static);
    setWordWrap(true);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setToolTip(tr("The shots, in stacking order. Select one to see it, or to compare it with the result; "
                  "clear its box to leave it out of the stack."));
    const auto make = [this](const QString& text, const char* name, const QKeySequence& key,
                             QStyle::StandardPixmap icon) {
        auto* action = new QAction(style()->standardIcon(icon), text, this);
        action->setObjectName(QLatin1String(name));
        action->setShortcut(key);
        action->setShortcutContext(Qt::WidgetWithChildrenShortcut);
        addAction(action);
        return action;
    };
    upAction_ = make(tr("Move &earlier"), "actionShotEarlier", QKeySequence(Qt::CTRL | Qt::Key_Up), QStyle::SP_ArrowUp);
    downAction_ =
        make(tr("Move &later"), "actionShotLater", QKeySequence(Qt::CTRL | Qt::Key_Down), QStyle::SP_ArrowDown);
    referenceAction_ = make(tr("Make it the &reference"), "actionShotReference", QKeySequence(Qt::CTRL | Qt::Key_Home),
                            QStyle::SP_ArrowLeft);
    referenceAction_->setToolTip(tr("Move the shot to the front: the first shot is the one the others are aligned "
                                    "and exposed to."));
    removeAction_ = make(tr("Re&move"), "actionShotRemove", QKeySequence::Delete, QStyle::SP_TrashIcon);
    setContextMenuPolicy(Qt::ActionsContextMenu);
    connect(upAction_, &QAction::triggered, this, [this] { moveSelected(currentRow() - 1); });
    connect(downAction_, &QAction::triggered, this, [this] { moveSelected(currentRow() + 1); });
    connect(referenceAction_, &QAction::triggered, this, [this] { moveSelected(0); });
    connect(removeAction_, &QAction::triggered, this, [this] {
        const QList<QListWidgetItem*> chosen = selectedItems();
        if (chosen.isEmpty())
            return;
        const int first = row(chosen.first());
        for (QListWidgetItem* item : chosen)
            delete item;
        setCurrentRow(std::min(first, count() - 1));
        emit stackChanged();
    });
    connect(this, &QListWidget::itemChanged, this, [this] { emit stackChanged(); });
    connect(this, &QListWidget::currentRowChanged, this, [this] {
        updateActions();
        emit selectedFileChanged(selectedFile());
    });
    updateActions();
}

void ShotList::setFiles(const QStringList& files)
{
    const QSignalBlocker blocker(this);
    clear();
    QPixmap blank(thumbnailSize_, thumbnailSize_ * 3 / 4);
    blank.fill(QColor(90, 90, 96));
    for (const QString& file : files) {
        auto* item = new QListWidgetItem(QIcon(blank), QFileInfo(file).fileName(), this);
        item->setData(Qt::UserRole, file);
        item->setToolTip(QDir::toNativeSeparators(file));
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(Qt::Checked);
    }
    setCurrentRow(0);
    updateActions();
}

QStringList ShotList::files() const
{
    QStringList files;
    for (int i = 0; i < count(); ++i)
        files << item(i)->data(Qt::UserRole).toString();
    return files;
}

QStringList ShotList::includedFiles() const
{
    QStringList files;
    for (int i = 0; i < count(); ++i)
        if (item(i)->checkState() == Qt::Checked)
            files << item(i)->data(Qt::UserRole).toString();
    return files;
}

void ShotList::setIncluded(const QString& file, bool included)
{
    if (QListWidgetItem* item = itemOf(file))
        item->setCheckState(included ? Qt::Checked : Qt::Unchecked);
}

QString ShotList::selectedFile() const
{
    const QListWidgetItem* item = currentItem() ? currentItem() : this->item(0);
    return item ? item->data(Qt::UserRole).toString() : QString();
}

void ShotList::setThumbnail(const QString& file, const QImage& thumbnail, const QString& error)
{
    QListWidgetItem* item = itemOf(file);
    if (!item)
        return;
    const QSignalBlocker blocker(this); // a picture changes nothing in the stack
    if (!error.isEmpty()) {
        item->setIcon(style()->standardIcon(QStyle::SP_MessageBoxWarning));
        item->setToolTip(QDir::toNativeSeparators(file) + QLatin1Char('\n') + error);
    } else {
        item->setIcon(QIcon(QPixmap::fromImage(thumbnail)));
    }
}

QListWidgetItem* ShotList::itemOf(const QString& file) const
{
    for (int i = 0; i < count(); ++i)
        if (item(i)->data(Qt::UserRole).toString() == file)
            return item(i);
    return nullptr;
}

void ShotList::moveSelected(int to)
{
    const int from = currentRow();
    if (from < 0 || to < 0 || to >= count() || to == from)
        return;
    {
        const QSignalBlocker blocker(this);
        insertItem(to, takeItem(from));
        setCurrentRow(to);
    }
    updateActions();
    emit stackChanged();
}

void ShotList::updateActions()
{
    const int row = currentRow();
    upAction_->setEnabled(row > 0);
    referenceAction_->setEnabled(row > 0);
    downAction_->setEnabled(row >= 0 && row + 1 < count());
    removeAction_->setEnabled(row >= 0);
}

} // namespace studio
