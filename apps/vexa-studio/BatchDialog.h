// A queue of folders, each a stack, merged one after another on a worker of its own with one set of
// settings, each result written beside its folder (as "<folder>-stacked.<format>") or into a chosen
// folder. The window stays usable meanwhile. Cancel stops the stack in progress (nothing of it is written);
// Start goes on with it and the folders after it, for as long as the application runs.
#pragma once

#include "StackWorker.h"

#include <QDialog>

#include <functional>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace studio {

class BatchDialog : public QDialog {
    Q_OBJECT
public:
    enum State { Waiting, Running, Done, Failed, Cancelled };
    // settings: the method and alignment to stack with (the window's), asked for as each stack starts.
    BatchDialog(std::function<StackRequest()> settings, QWidget* parent = nullptr);
    ~BatchDialog() override;

    void addFolders(const QStringList& folders);
    // What the settings are, in words, shown above the queue.
    void setSettingsText(const QString& text);
    // Where results go: empty for beside each folder.
    void setOutputFolder(const QString& folder);
    void start();
    void cancel();
    bool isRunning() const { return running_ >= 0; }
    State state(int row) const;
    // The file a folder's result was written to; empty until it is.
    QString result(int row) const;

signals:
    // The queue ran out, or was cancelled.
    void stopped();

private:
    void startNext();
    void finished(const JobResult& job);
    void setState(QTreeWidgetItem* item, State state, const QString& text);
    QString outputFile(const QString& folder) const;
    void updateButtons();

    std::function<StackRequest()> settings_;
    QTreeWidget* queue_ = nullptr;
    QLineEdit* outputEdit_ = nullptr;
    QComboBox* formatBox_ = nullptr;
    QLabel* settingsLabel_ = nullptr;
    QPushButton* startButton_ = nullptr;
    QPushButton* cancelButton_ = nullptr;
    QPushButton* addButton_ = nullptr;
    QPushButton* removeButton_ = nullptr;
    int running_ = -1; // the row being stacked
    bool stopping_ = false;
    StackWorker worker_; // last: it waits for a running stack before the widgets go
};

} // namespace studio
