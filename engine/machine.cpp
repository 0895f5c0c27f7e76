#include "engine/machine.h"

#include <QDir>
#include <QHostAddress>
#include <QNetworkInterface>
#include <QStandardPaths>

Machine Machine::current()
{
    Machine machine;
    const QList<QHostAddress> all = QNetworkInterface::allAddresses();
    for (const QHostAddress& address : all) {
        if (isUsable(address))
            machine.addresses << address.toString();
    }
    machine.movies = QStandardPaths::writableLocation(QStandardPaths::MoviesLocation);
    machine.music = QStandardPaths::writableLocation(QStandardPaths::MusicLocation);
    machine.documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    machine.temp = QDir::tempPath();
    return machine;
}

QString Machine::firstAddress() const
{
    return addresses.value(0);
}

bool Machine::isUsable(const QHostAddress& address)
{
    const QString text = address.toString();
    return address.protocol() == QAbstractSocket::IPv4Protocol && !text.startsWith(QLatin1String("127.")) &&
           !text.startsWith(QLatin1String("169.254."));
}
