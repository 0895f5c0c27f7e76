#include "ui/settingsfile.h"

#include "base/log.h"

#include <QDataStream>
#include <QFile>
#include <QSet>
#include <QSettings>

#include <cctype>

namespace settingsfile
{

namespace
{

bool isPlain(QChar character)
{
    const ushort code = character.unicode();
    return (code >= '0' && code <= '9') || (code >= 'A' && code <= 'Z') || (code >= 'a' && code <= 'z') ||
           code == '_' || code == '-' || code == '.';
}

QByteArray escapedName(const QString& name)
{
    QByteArray escaped;
    for (const QChar character : name) {
        const ushort code = character.unicode();
        if (isPlain(character))
            escaped += static_cast<char>(code);
        else if (character == u'/')
            escaped += '\\';
        else
            escaped += (code > 0xff ? "%U" : "%") +
                       QByteArray::number(code, 16).rightJustified(code > 0xff ? 4 : 2, '0').toUpper();
    }
    return escaped;
}

QByteArray escapedText(const QString& text)
{
    QByteArray escaped;
    bool isAfterCode = false; // of which the reader would take a digit that follows for a part
    bool isQuoted = text.startsWith(u' ') || text.endsWith(u' ');
    for (const QChar character : text) {
        const ushort code = character.unicode();
        isAfterCode = code < ' ' || code > '~' || (isAfterCode && std::isxdigit(code) != 0);
        isQuoted = isQuoted || code == ';' || code == ',' || code == '=' || code == '"';
        if (isAfterCode)
            escaped += "\\x" + QByteArray::number(code, 16);
        else
            escaped += (code == '"' || code == '\\' ? "\\" : "") + QByteArray(1, static_cast<char>(code));
    }
    return isQuoted ? '"' + escaped + '"' : escaped;
}

/// A value that has no text of its own, in one of the versions that the reader knows.
QByteArray escapedStream(const char* name, QDataStream::Version version, const QVariant& value)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(version);
    stream << value;
    return escapedText(QLatin1String(name) + u'(' + QString::fromLatin1(bytes.constData(), bytes.size()) + u')');
}

QByteArray escapedValue(const QVariant& value)
{
    const QString text = value.toString();
    switch (static_cast<QMetaType::Type>(value.type())) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        return text.toLatin1();
    case QMetaType::QString:
        if (text.contains(QChar::Null))
            break;
        return escapedText(text.startsWith(u'@') ? u'@' + text : text);
    case QMetaType::QDateTime:
        return escapedStream("@DateTime", QDataStream::Qt_5_6, value);
    default:
        break;
    }
    return escapedStream("@Variant", QDataStream::Qt_4_0, value);
}

QByteArray iniText(const QSettings::SettingsMap& settings)
{
    QMap<QString, QByteArray> sections;
    for (auto setting = settings.cbegin(); setting != settings.cend(); ++setting) {
        const int slash = setting.key().indexOf(u'/');
        sections[setting.key().left(qMax(slash, 0))] +=
            escapedName(setting.key().mid(slash + 1)) + '=' + escapedValue(setting.value()) + '\n';
    }
    QByteArray text;
    for (auto section = sections.cbegin(); section != sections.cend(); ++section) {
        const bool isCalledGeneral = section.key().compare(QLatin1String("general"), Qt::CaseInsensitive) == 0;
        const QByteArray name = section.key().isEmpty() ? "General" : escapedName(section.key());
        text +=
            (text.isEmpty() ? "[" : "\n[") + QByteArray(isCalledGeneral ? "%" : "") + name + "]\n" + section.value();
    }
    return text;
}

/// The directory of this process's open files, each under its number.
QString openFiles()
{
    return QStringLiteral("/proc/self/fd/");
}

/// Files whose reading failed: what they hold would be lost with the next writing.
QSet<QString>& unread()
{
    static QSet<QString> files;
    return files;
}

/// With Qt's own reader, for which the file needs another name: it has locked what it knows under this one.
bool read(QIODevice& device, QSettings::SettingsMap& settings)
{
    const auto& file = static_cast<QFileDevice&>(device);
    const QSettings ini(openFiles() + QString::number(file.handle()), QSettings::IniFormat);
    if (ini.status() == QSettings::AccessError) {
        unread().insert(file.fileName());
        return false;
    }
    unread().remove(file.fileName());
    const QStringList keys = ini.allKeys();
    for (const QString& key : keys)
        settings.insert(key, ini.value(key));
    return true; // also with a line that is no setting
}

bool write(QIODevice& device, const QSettings::SettingsMap& settings)
{
    const QByteArray text = iniText(settings);
    auto& file = static_cast<QFileDevice&>(device);
    const bool written = !unread().contains(file.fileName()) && file.write(text) == text.size() && file.flush();
    if (!written)
        ORVEL_LOG << "Unable to write" << file.fileName() << file.errorString();
    return written;
}

} // namespace

void install()
{
    if (!QFile::exists(openFiles()))
        return;
    static const QSettings::Format format = QSettings::registerFormat(QStringLiteral("conf"), read, write);
    QSettings::setDefaultFormat(format);
}

} // namespace settingsfile
