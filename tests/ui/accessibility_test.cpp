#include "tests/support/test.h"
#include "tests/ui/gallery.h"
#include "ui/dialogcld.h"

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

#include <algorithm>
#include <memory>

namespace
{

QString nameOf(QWidget* widget)
{
    QAccessibleInterface* face = QAccessible::queryAccessibleInterface(widget);
    return face == nullptr ? QString() : face->text(QAccessible::Name).trimmed();
}

bool takesKeyboard(const QWidget& widget, const QWidget& window)
{
    return widget.window() == &window && widget.isVisible() && widget.isEnabled() &&
           (widget.focusPolicy() & Qt::TabFocus) != 0;
}

/// What the Tab key should reach, as one reads it.
QVector<QWidget*> inReadingOrder(const QWidget& window)
{
    QVector<QWidget*> stops;
    for (QWidget* widget : window.findChildren<QWidget*>()) {
        if (takesKeyboard(*widget, window))
            stops << widget;
    }
    const auto place = [&](const QWidget* widget) {
        return QRect(widget->mapTo(&window, QPoint()), widget->size());
    };
    std::sort(stops.begin(), stops.end(), [&](const QWidget* first, const QWidget* second) {
        const QRect a = place(first);
        const QRect b = place(second);
        const bool inOneRow = a.top() <= b.center().y() && b.center().y() <= a.bottom();
        return inOneRow ? a.left() < b.left() : a.top() < b.top();
    });
    return stops;
}

/// What the Tab key does reach, from the first stop until it comes back to one.
QVector<QWidget*> inTabOrder(QWidget& window, QWidget* first)
{
    QVector<QWidget*> stops;
    first->setFocus(Qt::TabFocusReason);
    for (QWidget* stop = first; stop != nullptr && !stops.contains(stop); stop = window.focusWidget()) {
        stops << stop;
        QTest::keyClick(stop, Qt::Key_Tab);
    }
    return stops;
}

QStringList names(const QVector<QWidget*>& widgets)
{
    QStringList all;
    for (QWidget* widget : widgets)
        all << QLatin1String(widget->metaObject()->className()) + QStringLiteral(" ") + nameOf(widget);
    return all;
}

QStringList nameless(const QWidget& window)
{
    QStringList found;
    for (QWidget* widget : window.findChildren<QWidget*>()) {
        if (widget->window() == &window && widget->isVisible() && widget->focusPolicy() != Qt::NoFocus &&
            nameOf(widget).isEmpty())
            found << QLatin1String(widget->metaObject()->className());
    }
    return found;
}

QVector<QPushButton*> buttonsToPress(const QWidget& window)
{
    QVector<QPushButton*> buttons;
    for (auto* button : window.findChildren<QPushButton*>()) {
        if (button->window() == &window && button->isVisible() && button->isEnabled())
            buttons << button;
    }
    return buttons;
}

} // namespace

class AccessibilityTest final : public Test
{
    Q_OBJECT

    std::unique_ptr<Gallery> m_gallery;

protected:
    void tearDown() override
    {
        m_gallery.reset();
    }

private:
    QWidget& show(Gallery::Language language, const QString& window)
    {
        m_gallery = std::make_unique<Gallery>(language);
        return m_gallery->show(window);
    }

private slots:
    void everythingThatTakesTheFocusHasAName_data()
    {
        Gallery::addRows();
    }
    void everythingThatTakesTheFocusHasAName()
    {
        QFETCH(Gallery::Language, language);
        QFETCH(QString, window);
        QWidget& shown = show(language, window);
        QCOMPARE(nameless(shown), QStringList());
        if (auto* menu = qobject_cast<QMenu*>(&shown)) {
            QAccessibleInterface* face = QAccessible::queryAccessibleInterface(menu);
            QCOMPARE(face->childCount(), menu->actions().size());
            for (int i = 0; i < face->childCount(); ++i)
                QCOMPARE(face->child(i)->text(QAccessible::Name).isEmpty(), menu->actions().at(i)->isSeparator());
        }
    }

    void windowHasAName_data()
    {
        Gallery::addRows();
    }
    void windowHasAName()
    {
        QFETCH(Gallery::Language, language);
        QFETCH(QString, window);
        QWidget& shown = show(language, window);
        if (shown.inherits("Account") || shown.inherits("QMenu"))
            return; // not windows of their own
        QVERIFY(!nameOf(&shown).isEmpty());
    }

    void tabLeadsThroughEverythingAsOneReadsIt_data()
    {
        Gallery::addRows();
    }
    void tabLeadsThroughEverythingAsOneReadsIt()
    {
        QFETCH(Gallery::Language, language);
        QFETCH(QString, window);
        QWidget& shown = show(language, window);
        const QVector<QWidget*> expected = inReadingOrder(shown);
        QCOMPARE(expected.isEmpty(), qobject_cast<QMenu*>(&shown) != nullptr ||
                                         window == QLatin1String("account-offline") ||
                                         window == QLatin1String("update-progress"));
        if (expected.isEmpty())
            return;
        QCOMPARE(names(inTabOrder(shown, expected.first())), names(expected));
    }

    void oneButtonIsTheDefaultOne_data()
    {
        Gallery::addRows();
    }
    void oneButtonIsTheDefaultOne()
    {
        QFETCH(Gallery::Language, language);
        QFETCH(QString, window);
        const QWidget& shown = show(language, window);
        if (qobject_cast<const QDialog*>(&shown) == nullptr)
            return; // Return presses nothing outside of dialogs
        const auto buttons = buttonsToPress(shown);
        const auto isDefault = [](const QPushButton* button) {
            return button->isDefault();
        };
        QCOMPARE(std::count_if(buttons.begin(), buttons.end(), isDefault), buttons.isEmpty() ? 0 : 1);
    }

    void escapeClosesIt_data()
    {
        Gallery::addRows();
    }
    void escapeClosesIt()
    {
        QFETCH(Gallery::Language, language);
        QFETCH(QString, window);
        QWidget& shown = show(language, window);
        const QPointer<QWidget> watched(&shown);
        QWidget* focus = shown.focusWidget();
        QTest::keyClick(focus != nullptr ? focus : &shown, Qt::Key_Escape);
        const bool stays = window.startsWith(QLatin1String("account")); // a form within another window
        QCOMPARE(watched && watched->isVisible(), stays);
    }

    void spaceOnAButtonOfTheShareDialogPressesIt()
    {
        QWidget& dialog = show(Gallery::English, QStringLiteral("share-ask"));
        auto* email = dialog.findChild<QLineEdit*>();
        email->clear();
        const QSignalSpy requests(&dialog, SIGNAL(newSharedFolder(QString, QString, int)));
        const auto typeAt = [&](Qt::Key key) {
            QWidget* grabber = QWidget::keyboardGrabber();
            QTest::keyClick(grabber != nullptr ? grabber : dialog.focusWidget(), key);
        };
        typeAt(Qt::Key_A);
        typeAt(Qt::Key_Tab);
        typeAt(Qt::Key_Space);
        QCOMPARE(email->text(), QStringLiteral("a"));
        QCOMPARE(requests.count(), 1);
    }

    void formThatCannotBeFilledInPassesTheFocusOnAndTakesItBack()
    {
        QWidget& window = show(Gallery::English, QStringLiteral("main-offline"));
        QCOMPARE(window.focusWidget(), static_cast<QWidget*>(m_gallery->mainWindow().panel().startup));
        QCOMPARE(m_gallery->mainWindow().panel().folderPath->selectedText(), QString());
        show(Gallery::English, QStringLiteral("main-signedout")); // after having been signed in
        QCOMPARE(m_gallery->mainWindow().focusWidget(),
                 static_cast<QWidget*>(m_gallery->mainWindow().panel().username));
    }

    // The checks themselves

    void wantOfANameIsNoticed()
    {
        QWidget window;
        auto* layout = new QVBoxLayout(&window);
        auto* edit = new QLineEdit;
        auto* caption = new QLabel(QStringLiteral("Email"));
        layout->addWidget(caption);
        layout->addWidget(edit);
        window.show();
        QCOMPARE(nameless(window), QStringList{QStringLiteral("QLineEdit")});
        caption->setBuddy(edit);
        QCOMPARE(nameless(window), QStringList());
    }

    void confusedOrderIsNoticed()
    {
        QWidget window;
        auto* layout = new QVBoxLayout(&window);
        auto* first = new QPushButton(QStringLiteral("1"));
        auto* second = new QPushButton(QStringLiteral("2"));
        auto* third = new QPushButton(QStringLiteral("3"));
        for (QWidget* button : {first, second, third})
            layout->addWidget(button);
        window.show();
        QApplication::setActiveWindow(&window);
        QVERIFY(QTest::qWaitForWindowActive(&window));
        QCOMPARE(inReadingOrder(window), (QVector<QWidget*>{first, second, third}));
        QCOMPARE(inTabOrder(window, first), inReadingOrder(window));
        QWidget::setTabOrder(third, second);
        QCOMPARE(inTabOrder(window, first), (QVector<QWidget*>{first, third, second}));
    }
};

QTEST_MAIN(AccessibilityTest)
#include "accessibility_test.moc"
