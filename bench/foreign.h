#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>
#include <QVector>

/// Other parsers, each doing what the codec does: bytes into the same tree of values.
namespace foreign
{

struct Parser
{
    QString name;
    QVariant (*parse)(const QByteArray& json);
};

/// Those that this computer has.
QVector<Parser> parsers();

} // namespace foreign
