// The library's single-image tools as a menu: conversion, filters, rotation and resizing, brightness and
// contrast through the level curve. An action asks for its settings, when it has any, and hands the work
// to whoever runs it (the worker); the change then enters the undo history as an ImageCommand.
#pragma once

#include "StackWorker.h"

#include <QMenu>
#include <QUndoCommand>

#include <functional>

namespace studio {

class ToolsMenu : public QMenu {
    Q_OBJECT
public:
    explicit ToolsMenu(QWidget* parent);

signals:
    void toolRequested(const QString& title, const studio::ToolFunction& tool);

private:
    // An action without settings.
    QAction* addTool(QMenu* menu, const QString& title, const char* objectName, const ToolFunction& tool);
    // An action whose settings come from ask(), which returns an empty function when the user cancels.
    QAction* addTool(QMenu* menu, const QString& title, const char* objectName,
                     const std::function<ToolFunction()>& ask);
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
