#include "engine/engineprocess.h"
#include "tests/support/fakeengine.h"
#include "tests/support/test.h"

#include <QDir>

#include <windows.h>

#include <string>

class EngineProcessWinTest final : public Test
{
    Q_OBJECT

    static HANDLE openForNobodyElse(const QString& path, bool inheritable)
    {
        SECURITY_ATTRIBUTES attributes = {sizeof attributes, nullptr, inheritable ? TRUE : FALSE};
        const std::wstring name = QDir::toNativeSeparators(path).toStdWString();
        return CreateFileW(name.c_str(), GENERIC_READ, 0, &attributes, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    }

private slots:
    void engineInheritsNoHandleButItsStandardOnes()
    {
        FakeEngine engine;
        const QString path = testHome() + QStringLiteral("/held");
        const HANDLE held = openForNobodyElse(path, true);
        QVERIFY(held != INVALID_HANDLE_VALUE);
        const auto process = makeEngineProcess();
        process->start(engine.installDir() + QStringLiteral("/erlang/erts-9.0/bin/erl.exe"), QStringList());
        EVENTUALLY(engine.isConnected());
        CloseHandle(held);

        const HANDLE again = openForNobodyElse(path, false);
        QVERIFY2(again != INVALID_HANDLE_VALUE, "the engine holds the file");
        CloseHandle(again);

        engine.say("said");
        QByteArray heard;
        EVENTUALLY((heard += process->readAllStandardError()).contains("said"));
        process->kill();
        QVERIFY(process->waitForFinished(deadline()));
    }
};

QTEST_GUILESS_MAIN(EngineProcessWinTest)
#include "engineprocess_win_test.moc"
