#include "tests/support/endclient.h"

#include <QProcess>

void askToEnd(QProcess& client)
{
    client.terminate();
}
