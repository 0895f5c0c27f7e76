#include "ui/pickracun.h"

#include "tests/support/metamethods.h"
#include "tests/support/test.h"

#include <QGroupBox>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalSpy>
#include <QVBoxLayout>

class PickRacunTest final : public Test
{
    Q_OBJECT

private slots:
    void signalAndSlotStandInTheirDeclaredOrder()
    {
        QCOMPARE(signalsOf(PickRacun::staticMetaObject), QStringList{QStringLiteral("PickedRacun(QString)")});
        QCOMPARE(slotsOf(PickRacun::staticMetaObject), QStringList{QStringLiteral("dologin()")});
    }

    void offersTheAccountsInTheirOrderWithNoneChosen()
    {
        const PickRacun picker({QStringLiteral("30"), QStringLiteral("4"), QStringLiteral("5")});
        QCOMPARE(picker.findChild<QGroupBox*>()->title(), QStringLiteral("Pick accunt"));
        QCOMPARE(picker.findChild<QPushButton*>()->text(), QStringLiteral("Login"));
        QStringList texts;
        for (const auto* choice : picker.findChildren<QRadioButton*>()) {
            texts << choice->text();
            QVERIFY(!choice->isChecked());
        }
        QCOMPARE(texts, (QStringList{QStringLiteral("30"), QStringLiteral("4"), QStringLiteral("5")}));
    }

    void loginWithoutAChoiceDoesNothing()
    {
        PickRacun picker({QStringLiteral("1"), QStringLiteral("2")});
        picker.show();
        const QSignalSpy picked(&picker, SIGNAL(PickedRacun(QString)));
        QTest::mouseClick(picker.findChild<QPushButton*>(), Qt::LeftButton);
        QCOMPARE(picked.count(), 0);
        QVERIFY(picker.isVisible());
    }

    void buttonActsWhenItIsClickedAndNotWhenItIsPressed()
    {
        PickRacun picker({QStringLiteral("1")});
        picker.show();
        const QSignalSpy picked(&picker, SIGNAL(PickedRacun(QString)));
        picker.findChild<QRadioButton*>()->click();
        auto* button = picker.findChild<QPushButton*>();
        QTest::mousePress(button, Qt::LeftButton);
        QCOMPARE(picked.count(), 0);
        QTest::mouseRelease(button, Qt::LeftButton);
        QCOMPARE(picked.count(), 1);
        QVERIFY(picker.isVisible()); // its owner closes it
    }

    void accountsStandBelowOneAnotherAndTheButtonUnderThem()
    {
        PickRacun picker({QStringLiteral("1"), QStringLiteral("2")});
        auto* layout = qobject_cast<QVBoxLayout*>(picker.layout());
        auto* group = picker.findChild<QGroupBox*>();
        QVERIFY(layout != nullptr);
        QCOMPARE(layout->indexOf(group), 0);
        QCOMPARE(layout->indexOf(picker.findChild<QPushButton*>()), 1);
        auto* choices = qobject_cast<QVBoxLayout*>(group->layout());
        QVERIFY(choices != nullptr);
        QCOMPARE(choices->count(), 2);
    }

    void loginReportsTheChosenAccount()
    {
        PickRacun picker({QStringLiteral("1"), QStringLiteral("2")});
        picker.show();
        QSignalSpy picked(&picker, SIGNAL(PickedRacun(QString)));
        picker.findChildren<QRadioButton*>().last()->click();
        QTest::keyClick(&picker, Qt::Key_Return); // the button is the default one
        QCOMPARE(picked.count(), 1);
        QCOMPARE(picked.value(0), QVariantList{QStringLiteral("2")});
    }

    void emptyListIsOutlived()
    {
        PickRacun picker({});
        const QSignalSpy picked(&picker, SIGNAL(PickedRacun(QString)));
        QTest::mouseClick(picker.findChild<QPushButton*>(), Qt::LeftButton);
        QCOMPARE(picked.count(), 0);
    }
};

QTEST_MAIN(PickRacunTest)
#include "pickracun_test.moc"
