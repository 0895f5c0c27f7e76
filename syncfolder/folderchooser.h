#pragma once

#include <QString>

#include <functional>

class QWidget;

/// The question for a folder. It runs the user's folder dialog, modal to its parent.
namespace folderchooser
{

using Asker = std::function<QString(QWidget* parent, const QString& caption, const QString& start)>;

/// The full path of the chosen folder, or empty when the user cancelled. The dialog runs the event loop:
/// when @p parent is destroyed meanwhile, the dialog is closed and the answer is empty.
QString ask(QWidget* parent, const QString& caption, const QString& start);

/// Lets something else answer, for tests; an empty one brings the dialog back.
void setAsker(Asker asker);

} // namespace folderchooser
