// The library's single-image tools as a menu: conversion, filters, rotation and resizing, brightness and
// contrast through the level curve. An action asks for its settings, when it has any, and hands the work
// to whoever runs it (the worker); the change then enters the undo history as an ImageCommand.
#pragma once

#include "StackWorker.h"

#include <QInputDialog>
#include <QMenu>
#include <QUndoCommand>

#include <functional>

namespace studio {

class ToolsMenu : public QMenu {
    Q_OBJECT
public:
    explicit ToolsMenu(QWidget* parent);

    // Shows a tool's outcome on the view while its settings are being chosen (the tone tools and filters
    // call it as their settings change); the empty function ends the preview.
    void setPreview(std::function<void(const ToolFunction&)> preview) { preview_ = std::move(preview); }

signals:
    void toolRequested(const QString& title, const studio::ToolFunction& tool);

private:
    // An action without settings.
    QAction* addTool(QMenu* menu, const QString& title, const char* objectName, const ToolFunction& tool);
    // An action whose settings come from ask(), which returns an empty function when the user cancels.
    QAction* addTool(QMenu* menu, const QString& title, const char* objectName,
                     const std::function<ToolFunction()>& ask);
    // Asks for one number, previewing make(value) as it changes; the tool, or empty when cancelled.
    ToolFunction askInt(const QString& title, const QString& label, int value, int min, int max, int step,
                        const std::function<ToolFunction(int)>& make);
    ToolFunction askDouble(const QString& title, const QString& label, double value, double min, double max,
                           int decimals, const std::function<ToolFunction(double)>& make);
    // A dialog of one number, set up by configure, previewing make(value) as the value changes.
    template <class Value>
    ToolFunction previewed(const QString& title, const QString& label,
                           const std::function<void(QInputDialog&)>& configure, void (QInputDialog::*changed)(Value),
                           Value (QInputDialog::*current)() const, const std::function<ToolFunction(Value)>& make);
    void preview(const ToolFunction& tool);

    std::function<void(const ToolFunction&)> preview_;
};

// One step of the history: the image before and after a tool, handed to set() on undo and redo.
class ImageCommand : public QUndoCommand {
public:
    using Setter = std::function<void(const VImage&)>;
    ImageCommand(const QString& title, const VImage& before, const VImage& after, Setter set)
        : QUndoCommand(title), before_(before), after_(after), set_(std::move(set))
    {
    }
    void undo() override { set_(before_); }
    void redo() override { set_(after_); }

private:
    VImage before_, after_;
    Setter set_;
};

} // namespace studio
