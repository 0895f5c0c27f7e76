#include "syncfolder/folderchooser.h"

#include "tests/support/test.h"

#include <QApplication>
#include <QFileDialog>
#include <QPointer>
#include <QTimer>

namespace
{

#ifdef Q_OS_WIN
constexpr bool isSystems = true;
#else
constexpr bool isSystems = false;
#endif

} // namespace

/// The dialog that the user sees; those who ask are tested with another one in its place.
class FolderChooserTest final : public Test
{
    Q_OBJECT

    QString m_folder; ///< where the dialog begins
    QString m_answer; ///< what the user chooses; empty: nothing
    bool m_seen = false;
    QWidget* m_parent = nullptr;
    bool m_outlivesItsParent = false;

protected:
    void setUp() override
    {
        m_folder = testHome() + QStringLiteral("/start");
        QVERIFY(QDir().mkpath(m_folder + QStringLiteral("/chosen")));
        m_answer.clear();
        m_seen = false;
    }

private:
    QString ask()
    {
        QTimer::singleShot(0, this, SLOT(lookAtDialog()));
        return folderchooser::ask(nullptr, QStringLiteral("Pick it"), m_folder);
    }

public slots:
    void destroyParent()
    {
        QPointer<QFileDialog> dialog = m_parent->findChild<QFileDialog*>();
        if (!dialog || !dialog->isVisible()) {
            QTimer::singleShot(1, this, SLOT(destroyParent())); // not shown yet
            return;
        }
        delete m_parent;
        m_outlivesItsParent = dialog;
    }

    void lookAtDialog()
    {
        auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        if (dialog == nullptr) {
            QTimer::singleShot(1, this, SLOT(lookAtDialog())); // not shown yet
            return;
        }
        m_seen = true;
        // The system's own, where it has one.
        const bool native = !dialog->testOption(QFileDialog::DontUseNativeDialog);
        const QString caption = dialog->windowTitle();
        const QString start = dialog->directory().path();
        const bool directories = dialog->fileMode() == QFileDialog::Directory;
        const bool onlyDirectories = dialog->testOption(QFileDialog::ShowDirsOnly);
        if (m_answer.isEmpty()) {
            dialog->reject();
        } else {
            dialog->selectFile(m_answer);
            static_cast<QDialog*>(dialog)->accept();
        }
        QVERIFY(native);
        QVERIFY(directories);
        QVERIFY(onlyDirectories);
        QCOMPARE(caption, QStringLiteral("Pick it"));
        QCOMPARE(start, m_folder);
    }

private slots:
    void userIsAskedForADirectoryInTheSystemsDialog()
    {
        if (isSystems)
            QSKIP("the system's own dialog cannot be answered");
        m_answer = m_folder + QStringLiteral("/chosen");
        QCOMPARE(ask(), m_answer);
        QVERIFY(m_seen);
    }

    void dialogIsClosedBeforeItGoesWhenItsParentIsDestroyed()
    {
        m_parent = new QWidget;
        m_parent->show();
        QTimer::singleShot(0, this, SLOT(destroyParent()));
        QCOMPARE(folderchooser::ask(m_parent, QStringLiteral("Pick it"), m_folder), QString());
        QVERIFY(m_outlivesItsParent);
    }

    void cancelledDialogGivesAnEmptyAnswer()
    {
        if (isSystems)
            QSKIP("the system's own dialog cannot be answered");
        QCOMPARE(ask(), QString());
        QVERIFY(m_seen);
    }
};

QTEST_MAIN(FolderChooserTest)
#include "folderchooser_test.moc"
