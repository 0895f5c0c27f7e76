#pragma once

#include <QByteArray>
#include <QString>

/// The codec that turns this system's file names into the bytes of a line and back, whatever the locale says.
const char* nameCodec();
/// Lets standard output take bytes as they are.
void makeOutputBinary();
/// Tells a directory from any other that takes its place; empty when there is none.
QByteArray directoryId(const QString& path);
