// The whole road with the real local engine: signing in, files up and down, the window and the tray.

#include "engine/servercomm.h"
#include "syncfolder/syncfolder.h"
#include "tests/app/localengine.h"
#include "tests/support/test.h"
#include "ui/dialogcld.h"
#include "ui/pickracun.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QRadioButton>
#include <QSettings>

#include <memory>

class LocalEngineTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<LocalEngine> m_engine;
    std::unique_ptr<DialogCld> m_dialog;

protected:
    void setUp() override
    {
        m_engine = std::make_unique<LocalEngine>();
        QDir::setCurrent(m_engine->installDir());
    }

    void tearDown() override
    {
        m_dialog.reset();
        m_engine.reset();
        QSettings().clear();
        forgetNames();
    }

private:
    DialogCld& create()
    {
        m_dialog.reset();
        forgetNames();
        m_dialog = std::make_unique<DialogCld>();
        m_dialog->show();
        return *m_dialog;
    }

    bool reaches(const char* state) const
    {
        return QTest::qWaitFor([&] { return m_dialog->server().state().netState == QLatin1String(state); },
                               2 * deadline());
    }

    static bool holds(const QString& path, const QByteArray& content)
    {
        return QTest::qWaitFor([&] { return readFile(path) == content; }, 2 * deadline());
    }

    void signIn(const char* username, const char* password)
    {
        QVERIFY(reaches("logout"));
        m_dialog->panel().username->setText(QLatin1String(username));
        m_dialog->panel().password->setText(QLatin1String(password));
        QTest::mouseClick(m_dialog->panel().login, Qt::LeftButton);
    }

private slots:
    void filesOfTheFolderArriveInTheCloudAndBack()
    {
        create();
        signIn("trial@orvel.example", "trial");
        QVERIFY(reaches("ok"));
        const quint64 uid = m_dialog->syncFolder().uid();
        QCOMPARE(uid, 1001ULL);
        EVENTUALLY_EQUAL(m_dialog->panel().folderPath->text(), LocalEngine::folder());
        QVERIFY(m_dialog->tray().toolTip().endsWith(QStringLiteral("Sync done")));
        EVENTUALLY(!m_dialog->tray().contextMenu()->actions().value(5)->text().isEmpty());

        const QString name = QString::fromUtf8("Mapa \xc5\xa1\x65st/po\xc4\x8ditnice.txt");
        writeFile(LocalEngine::folder(name), "from here");
        QVERIFY(holds(LocalEngine::cloud(uid, name), "from here"));
        writeFile(LocalEngine::cloud(uid, QStringLiteral("there.txt")), "from there");
        QVERIFY(holds(LocalEngine::folder(QStringLiteral("there.txt")), "from there"));
        QFile::remove(LocalEngine::folder(name));
        EVENTUALLY(!QFileInfo::exists(LocalEngine::cloud(uid, name)));
    }

    void wrongPasswordIsSaid()
    {
        create();
        signIn("trial@orvel.example", "wrong");
        EVENTUALLY_EQUAL(m_dialog->panel().status->text(), QStringLiteral("Login unsuccessful."));
    }

    void oneOfTwoAccountsIsPicked()
    {
        create();
        signIn("team@orvel.example", "team");
        PickRacun* picker = nullptr;
        EVENTUALLY((picker = findPicker()) != nullptr);
        const auto choices = picker->findChildren<QRadioButton*>();
        QCOMPARE(choices.size(), 2);
        choices.last()->setChecked(true);
        const quint64 chosen = choices.last()->text().toULongLong();
        QTest::mouseClick(picker->findChild<QPushButton*>(), Qt::LeftButton);
        QVERIFY(reaches("ok"));
        EVENTUALLY_EQUAL(m_dialog->syncFolder().uid(), chosen);
    }

    void signInIsRememberedOverARestartAndTheFolderIsMirroredOn()
    {
        create();
        signIn("trial@orvel.example", "trial");
        QVERIFY(reaches("ok"));
        m_dialog.reset();
        writeFile(LocalEngine::folder(QStringLiteral("while-away.txt")), "x");
        create();
        QVERIFY(reaches("ok"));
        QVERIFY(holds(LocalEngine::cloud(1001, QStringLiteral("while-away.txt")), "x"));
        writeFile(LocalEngine::folder(QStringLiteral("again.txt")), "y");
        QVERIFY(holds(LocalEngine::cloud(1001, QStringLiteral("again.txt")), "y"));
    }

private:
    static PickRacun* findPicker()
    {
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (auto* picker = qobject_cast<PickRacun*>(widget))
                return picker;
        }
        return nullptr;
    }
};

QTEST_MAIN(LocalEngineTest)
#include "localengine_test.moc"
