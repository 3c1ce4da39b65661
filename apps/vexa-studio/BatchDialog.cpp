#include "BatchDialog.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace studio {

namespace {
constexpr int kPathRole = Qt::UserRole, kStateRole = Qt::UserRole + 1, kResultRole = Qt::UserRole + 2;
}

BatchDialog::BatchDialog(std::function<StackRequest()> settings, QWidget* parent)
    : QDialog(parent), settings_(std::move(settings))
{
    setWindowTitle(tr("Batch stacking"));
    setObjectName(QStringLiteral("batchDialog"));
    auto* layout = new QVBoxLayout(this);
    settingsLabel_ = new QLabel;
    settingsLabel_->setWordWrap(true);
    layout->addWidget(settingsLabel_);

    queue_ = new QTreeWidget;
    queue_->setObjectName(QStringLiteral("batchQueue"));
    queue_->setColumnCount(2);
    queue_->setHeaderLabels({tr("Folder"), tr("State")});
    queue_->setRootIsDecorated(false);
    queue_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    queue_->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    queue_->header()->setStretchLastSection(true);
    layout->addWidget(queue_, 1);

    auto* queueButtons = new QHBoxLayout;
    addButton_ = new QPushButton(tr("&Add folders..."));
    connect(addButton_, &QPushButton::clicked, this, [this] {
        const QString folder = QFileDialog::getExistingDirectory(this, tr("Add a folder of shots"));
        if (!folder.isEmpty())
            addFolders({folder});
    });
    removeButton_ = new QPushButton(tr("&Remove"));
    connect(removeButton_, &QPushButton::clicked, this, [this] {
        for (QTreeWidgetItem* item : queue_->selectedItems())
            if (queue_->indexOfTopLevelItem(item) != running_)
                delete item;
        updateButtons();
    });
    queueButtons->addWidget(addButton_);
    queueButtons->addWidget(removeButton_);
    queueButtons->addStretch(1);
    layout->addLayout(queueButtons);

    auto* form = new QFormLayout;
    auto* output = new QHBoxLayout;
    outputEdit_ = new QLineEdit;
    outputEdit_->setPlaceholderText(tr("beside each folder"));
    outputEdit_->setClearButtonEnabled(true);
    auto* choose = new QPushButton(tr("Choose..."));
    connect(choose, &QPushButton::clicked, this, [this] {
        const QString folder = QFileDialog::getExistingDirectory(this, tr("Save the results in"));
        if (!folder.isEmpty())
            setOutputFolder(folder);
    });
    output->addWidget(outputEdit_, 1);
    output->addWidget(choose);
    form->addRow(tr("Save results:"), output);
    formatBox_ = new QComboBox;
    formatBox_->addItem(tr("PNG (16 bits where the result has them)"), QStringLiteral("png"));
    formatBox_->addItem(tr("TIFF (16 bits where the result has them)"), QStringLiteral("tif"));
    formatBox_->addItem(tr("JPEG"), QStringLiteral("jpg"));
    form->addRow(tr("Format:"), formatBox_);
    layout->addLayout(form);

    auto* buttons = new QDialogButtonBox;
    startButton_ = buttons->addButton(tr("&Start"), QDialogButtonBox::ActionRole);
    startButton_->setObjectName(QStringLiteral("batchStart"));
    cancelButton_ = buttons->addButton(tr("Cancel"), QDialogButtonBox::ActionRole);
    cancelButton_->setObjectName(QStringLiteral("batchCancel"));
    buttons->addButton(QDialogButtonBox::Close);
    connect(startButton_, &QPushButton::clicked, this, &BatchDialog::start);
    connect(cancelButton_, &QPushButton::clicked, this, &BatchDialog::cancel);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::hide); // the queue runs on, hidden
    layout->addWidget(buttons);

    connect(&worker_, &StackWorker::progressed, this, [this](double fraction, const QString& stage) {
        if (QTreeWidgetItem* item = queue_->topLevelItem(running_))
            item->setText(1, tr("%1% %2").arg(int(fraction * 100)).arg(stage));
    });
    connect(&worker_, &StackWorker::finished, this, &BatchDialog::finished);
    resize(640, 420);
    updateButtons();
}

BatchDialog::~BatchDialog() = default;

void BatchDialog::setSettingsText(const QString& text) { settingsLabel_->setText(text); }

void BatchDialog::addFolders(const QStringList& folders)
{
    for (const QString& folder : folders) {
        const QString path = QFileInfo(folder).absoluteFilePath();
        bool queued = false;
        for (int i = 0; i < queue_->topLevelItemCount(); ++i)
            queued |= queue_->topLevelItem(i)->data(0, kPathRole).toString() == path;
        if (queued)
            continue;
        auto* item = new QTreeWidgetItem(queue_, {QFileInfo(path).fileName()});
        item->setData(0, kPathRole, path);
        item->setToolTip(0, QDir::toNativeSeparators(path));
        setState(item, Waiting, tr("waiting"));
    }
    updateButtons();
}

void BatchDialog::setOutputFolder(const QString& folder) { outputEdit_->setText(folder); }

BatchDialog::State BatchDialog::state(int row) const
{
    const QTreeWidgetItem* item = queue_->topLevelItem(row);
    return item ? State(item->data(0, kStateRole).toInt()) : Failed;
}

QString BatchDialog::result(int row) const
{
    const QTreeWidgetItem* item = queue_->topLevelItem(row);
    return item ? item->data(0, kResultRole).toString() : QString();
}

void BatchDialog::start()
{
    if (isRunning())
        return;
    stopping_ = false;
    startNext();
}

void BatchDialog::cancel()
{
    if (!isRunning())
        return;
    stopping_ = true;
    worker_.cancel();
    cancelButton_->setEnabled(false);
}

void BatchDialog::startNext()
{
    for (int row = 0; row < queue_->topLevelItemCount(); ++row) {
        QTreeWidgetItem* item = queue_->topLevelItem(row);
        const State state = State(item->data(0, kStateRole).toInt());
        if (state != Waiting && state != Cancelled)
            continue;
        StackRequest request = settings_();
        request.files = imageFiles({item->data(0, kPathRole).toString()});
        if (request.files.size() < 2) {
            setState(item, Failed, tr("needs two shots or more, has %1").arg(request.files.size()));
            continue;
        }
        request.keepForRetouch = false;
        request.saveTo = outputFile(item->data(0, kPathRole).toString());
        if (!worker_.stack(request))
            break;
        running_ = row;
        setState(item, Running, tr("%n shot(s), starting...", nullptr, int(request.files.size())));
        updateButtons();
        return;
    }
    running_ = -1;
    updateButtons();
    emit stopped();
}

void BatchDialog::finished(const JobResult& job)
{
    QTreeWidgetItem* item = queue_->topLevelItem(running_);
    running_ = -1;
    if (item) {
        if (job.cancelled) {
            setState(item, Cancelled, tr("cancelled: Start goes on from here"));
        } else if (!job.error.isEmpty()) {
            setState(item, Failed, job.error);
        } else {
            item->setData(0, kResultRole, job.saved);
            setState(item, Done,
                     job.warning.isEmpty() ? tr("saved as %1").arg(QFileInfo(job.saved).fileName())
                                           : tr("saved as %1 (%2)").arg(QFileInfo(job.saved).fileName(), job.warning));
        }
    }
    if (stopping_ || job.cancelled) {
        updateButtons();
        emit stopped();
        return;
    }
    startNext();
}

void BatchDialog::setState(QTreeWidgetItem* item, State state, const QString& text)
{
    item->setData(0, kStateRole, int(state));
    item->setText(1, text);
    item->setToolTip(1, text);
}

QString BatchDialog::outputFile(const QString& folder) const
{
    const QDir into(outputEdit_->text().isEmpty() ? QFileInfo(folder).absolutePath() : outputEdit_->text());
    const QString base = QFileInfo(folder).fileName() + QStringLiteral("-stacked");
    const QString suffix = formatBox_->currentData().toString();
    // An earlier result is never overwritten.
    QString file = into.filePath(base + QLatin1Char('.') + suffix);
    for (int n = 2; QFileInfo::exists(file); ++n)
        file = into.filePath(QStringLiteral("%1-%2.%3").arg(base).arg(n).arg(suffix));
    return file;
}

void BatchDialog::updateButtons()
{
    bool pending = false;
    for (int row = 0; row < queue_->topLevelItemCount(); ++row)
        pending |= state(row) == Waiting || state(row) == Cancelled;
    startButton_->setEnabled(!isRunning() && pending);
    cancelButton_->setEnabled(isRunning());
}

} // namespace studio
