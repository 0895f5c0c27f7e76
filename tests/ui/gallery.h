#pragma once

#include <QMetaType>
#include <QStringList>
#include <QTranslator>

#include <memory>

class Account;
class DialogCld;
class FakeEngine;
class QWidget;

/// Every window of the program in each state that a user sees it in, by name, in one language.
///
/// The windows stand as the program opens them, beside a main window whose engine is a fake one. It needs a
/// home of its own (see tests/support/testhome.h), and gives the application its names and its style.
class Gallery final
{
    Q_DISABLE_COPY_MOVE(Gallery)

public:
    enum Language
    {
        English,
        Slovenian
    };

    static QStringList names();

    /// A row of test data for each window in each language, in the columns "language" and "window".
    static void addRows();

    explicit Gallery(Language language);
    ~Gallery();

    /// Shows one, active and laid out. It lives until the next call or the gallery's end. Ends the program
    /// when the name is unknown or the engine does not answer within the deadline.
    QWidget& show(const QString& name);

    /// The main window beside the one that was shown last, or that one itself.
    const DialogCld& mainWindow() const;

private:
    void start();
    void clear();
    QWidget* open(const QString& kind, const QString& state);
    QWidget* openMain(const QString& state);
    QWidget* openGuide(int step);
    QWidget* openPicker(int accounts);
    QWidget* openShare(const QString& state);
    QWidget* openAccount(const QString& state);
    QWidget* openMenu();
    QWidget* openFolderExists();
    QWidget* openUpdate(const QString& state);
    QWidget* openOffer();
    static void activate(QWidget& window);
    void say(const QByteArray& line);
    void sayTransfer();
    void sayState(const QByteArray& state, int uid);

    QTranslator m_translator;
    std::unique_ptr<FakeEngine> m_engine;
    std::unique_ptr<DialogCld> m_main;
    std::unique_ptr<QWidget> m_window; ///< when it is not the main window's
};

Q_DECLARE_METATYPE(Gallery::Language)
