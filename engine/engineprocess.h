#pragma once

#include <QProcess>

#include <memory>

/// A child process that ends with this one, however this one ends. It is not started yet; the caller
/// owns it and must destroy it on the GUI thread.
std::unique_ptr<QProcess> makeEngineProcess();
