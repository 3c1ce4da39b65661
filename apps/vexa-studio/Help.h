// The Help menu's pages: a short guide to the window, the keyboard shortcuts read from the window's own
// actions (so that the list cannot fall behind them), and the versions of the library, Qt and OpenCV.
#pragma once

class QWidget;

namespace studio {

void showGuide(QWidget* window);
// Every action of the window with a shortcut, by its property "shortcutName" where it has one (Undo's text
// names the step it would undo), else by its text.
void showShortcuts(QWidget* window);
void showAbout(QWidget* window);

} // namespace studio
