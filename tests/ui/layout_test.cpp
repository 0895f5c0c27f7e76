#include "tests/support/test.h"
#include "tests/ui/gallery.h"
#include "ui/dialogcld.h"

#include <QAbstractButton>
#include <QApplication>
#include <QGroupBox>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QWindow>

#include <cmath>
#include <memory>

namespace
{

const QSize smallestScreen(1024, 700); // logical pixels, without a task bar and the window's frame

QString described(const QWidget& widget)
{
    const QVariant text = widget.property("text").isValid() ? widget.property("text") : widget.property("title");
    return QStringLiteral("%1 \"%2\" of %3x%4")
        .arg(QLatin1String(widget.metaObject()->className()), text.toString())
        .arg(widget.width())
        .arg(widget.height());
}

/// The least that a widget can be and still show all that it says.
QSize needed(const QWidget& widget)
{
    const auto* label = qobject_cast<const QLabel*>(&widget);
    if (label != nullptr && label->wordWrap())
        return {label->minimumSizeHint().width(), label->heightForWidth(label->width())};
    if (label != nullptr || qobject_cast<const QAbstractButton*>(&widget) != nullptr)
        return widget.sizeHint();
    if (qobject_cast<const QProgressBar*>(&widget) != nullptr)
        return {}; // it says nothing
    if (qobject_cast<const QLineEdit*>(&widget) != nullptr)
        return {widget.sizeHint().width(), widget.minimumSizeHint().height()};
    return widget.minimumSizeHint();
}

/// What is wrong with the layout of a window that is shown.
QStringList complaints(const QWidget& window)
{
    QStringList found;
    const auto widgets = window.findChildren<QWidget*>();
    for (const QWidget* widget : widgets) {
        if (!widget->isVisible() || widget->window() != &window)
            continue;
        const QSize least = needed(*widget);
        if (widget->width() < least.width() || widget->height() < least.height())
            found << QStringLiteral("%1 needs %2x%3").arg(described(*widget)).arg(least.width()).arg(least.height());
        if (!widget->parentWidget()->rect().contains(widget->geometry()))
            found << described(*widget) + QStringLiteral(" sticks out of its parent");
        const auto siblings = widget->parentWidget()->findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly);
        for (const QWidget* sibling : siblings) {
            if (sibling > widget && sibling->isVisible() && sibling->geometry().intersects(widget->geometry()))
                found << described(*widget) + QStringLiteral(" overlaps ") + described(*sibling);
        }
    }
    if (window.width() > smallestScreen.width() || window.height() > smallestScreen.height())
        found << described(window) + QStringLiteral(" does not fit on a small screen");
    return found;
}

/// Whether a picture has a pixel of its own for each pixel of the screen that shows it.
bool isSharp(const QPixmap& picture, const QSize& shownSize, qreal scale)
{
    return picture.width() >= std::floor(shownSize.width() * scale) &&
           picture.height() >= std::floor(shownSize.height() * scale);
}

bool isSharp(const QLabel& label)
{
    const QPixmap picture = label.pixmap(Qt::ReturnByValue);
    return isSharp(picture, picture.size() / picture.devicePixelRatio(), label.devicePixelRatioF());
}

} // namespace

class LayoutTest final : public Test
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
        if (!m_gallery)
            m_gallery = std::make_unique<Gallery>(language);
        return m_gallery->show(window);
    }

    /// The place of everything that is the same on each step of the guide.
    static QVector<QRect> frameOf(const QWidget& guide)
    {
        QVector<QRect> places{guide.rect()};
        for (const auto* button : guide.findChildren<QPushButton*>()) {
            if (button->isVisible())
                places << button->geometry();
        }
        for (const auto* label : guide.findChildren<QLabel*>()) {
            if (!label->pixmap(Qt::ReturnByValue).isNull())
                places << label->geometry();
        }
        return places;
    }

private slots:
    void screenIsScaledAsTheTestWasTold()
    {
        const QByteArray scale = qgetenv("QT_SCALE_FACTOR");
        QCOMPARE(qApp->devicePixelRatio(), scale.isEmpty() ? 1.0 : scale.toDouble());
    }

    void everythingHasTheRoomItNeeds_data()
    {
        Gallery::addRows();
    }
    void everythingHasTheRoomItNeeds()
    {
        QFETCH(Gallery::Language, language);
        QFETCH(QString, window);
        const QStringList found = complaints(show(language, window));
        QVERIFY2(found.isEmpty(), qPrintable(found.join(u'\n')));
    }

    void everythingIsStillThereInTheSmallestWindow_data()
    {
        Gallery::addRows();
    }
    void everythingIsStillThereInTheSmallestWindow()
    {
        QFETCH(Gallery::Language, language);
        QFETCH(QString, window);
        QWidget& shown = show(language, window);
        shown.resize(1, 1);
        QCoreApplication::sendPostedEvents();
        const QStringList found = complaints(shown);
        QVERIFY2(found.isEmpty(), qPrintable(found.join(u'\n')));
    }

    void picturesAreSharp_data()
    {
        Gallery::addRows();
    }
    void picturesAreSharp()
    {
        QFETCH(Gallery::Language, language);
        QFETCH(QString, window);
        const QWidget& shown = show(language, window);
        if (qobject_cast<const QMessageBox*>(&shown) != nullptr)
            return; // its picture is the desktop's
        int pictures = 0;
        for (const auto* label : shown.findChildren<QLabel*>()) {
            if (!label->isVisible() || label->pixmap(Qt::ReturnByValue).isNull())
                continue;
            ++pictures;
            QVERIFY2(isSharp(*label), qPrintable(described(*label)));
        }
        const bool hasPicture = window.startsWith(QLatin1String("guide")) || window == QLatin1String("update-offer");
        QCOMPARE(pictures, hasPicture ? 1 : 0);
    }

    void iconsAreSharp_data()
    {
        QTest::addColumn<QString>("window");
        QTest::newRow("start") << "main-start";
        QTest::newRow("synced") << "main-settings";
        QTest::newRow("offline") << "main-offline";
    }
    void iconsAreSharp()
    {
        QFETCH(QString, window);
        const QWidget& shown = show(Gallery::English, window);
        const qreal scale = qApp->devicePixelRatio();
        const QSize traySize(36, 36);
        const QSize windowSize(72, 72);
        QVERIFY(isSharp(m_gallery->mainWindow().tray().icon().pixmap(shown.windowHandle(), traySize), traySize, scale));
        QVERIFY(isSharp(shown.windowIcon().pixmap(shown.windowHandle(), traySize), traySize, scale));
        QVERIFY(isSharp(QApplication::windowIcon().pixmap(shown.windowHandle(), windowSize), windowSize, scale));
    }

    void guideKeepsItsSizeItsButtonsAndItsPictureInPlace_data()
    {
        QTest::addColumn<Gallery::Language>("language");
        QTest::newRow("en") << Gallery::English;
        QTest::newRow("sl") << Gallery::Slovenian;
    }
    void guideKeepsItsSizeItsButtonsAndItsPictureInPlace()
    {
        QFETCH(Gallery::Language, language);
        QWidget& guide = show(language, QStringLiteral("guide-2"));
        const QVector<QRect> frame = frameOf(guide);
        QCOMPARE(frame.size(), 5); // the window, three buttons and the picture
        QVERIFY(QMetaObject::invokeMethod(&guide, "moveForward"));
        guide.layout()->activate();
        QCOMPARE(frameOf(guide), frame);
        QVERIFY(QMetaObject::invokeMethod(&guide, "moveForward"));
        guide.layout()->activate();
        for (const QRect& place : frameOf(guide)) // the last step has no button to go on
            QVERIFY(frame.contains(place));
        const QRect& picture = frame.last();
        QVERIFY(qAbs(picture.center().x() - guide.rect().center().x()) <= 1);
    }

    void mainWindowKeepsItsSizeFromStateToState_data()
    {
        QTest::addColumn<Gallery::Language>("language");
        QTest::newRow("en") << Gallery::English;
        QTest::newRow("sl") << Gallery::Slovenian;
    }
    void mainWindowKeepsItsSizeFromStateToState()
    {
        QFETCH(Gallery::Language, language);
        const QSize atStart = show(language, QStringLiteral("main-start")).size();
        const QStringList windows = Gallery::names().filter(QStringLiteral("main-"));
        QVERIFY(windows.size() > 5);
        for (const QString& window : windows)
            QCOMPARE(show(language, window).size(), atStart);
    }

    // The checks themselves

    void lackOfRoomIsNoticed()
    {
        QWidget window;
        auto* label = new QLabel(QStringLiteral("Orvel Storage folder was not found."), &window);
        label->adjustSize();
        window.show();
        QCOMPARE(complaints(window), QStringList());
        label->resize(label->width() - 1, label->height());
        QCOMPARE(complaints(window).size(), 1);
        label->setWordWrap(true);
        label->resize(label->minimumSizeHint().width(), label->height());
        QCOMPARE(complaints(window).size(), 1);
    }

    void lackOfPlaceIsNoticed()
    {
        QWidget window;
        window.resize(200, 100);
        auto* first = new QPushButton(QStringLiteral("1"), &window);
        auto* second = new QPushButton(QStringLiteral("2"), &window);
        second->move(100, 50);
        window.show();
        QCOMPARE(complaints(window), QStringList());
        second->move(first->pos() + QPoint(10, 10));
        QCOMPARE(complaints(window).size(), 1);
        second->move(190, 90);
        QCOMPARE(complaints(window).size(), 1);
        window.resize(1100, 100);
        second->move(100, 50);
        QCOMPARE(complaints(window).size(), 1);
    }

    void blurIsNoticed()
    {
        QLabel label;
        label.setPixmap(QPixmap(10, 10));
        QCOMPARE(isSharp(label), label.devicePixelRatioF() <= 1);
        QPixmap fine(20, 20);
        fine.setDevicePixelRatio(2);
        label.setPixmap(fine);
        QVERIFY(isSharp(label));
    }
};

int main(int argc, char* argv[])
{
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QApplication application(argc, argv);
    LayoutTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "layout_test.moc"
