#pragma once

class QCheckBox;
class QDialog;
class QFrame;
class QLabel;
class QLineEdit;
class QPushButton;
class QString;
struct PanelView;

/// The widgets of the settings and account panel, laid out in a dialog that owns them.
struct SettingsPanel
{
    QLabel* heading = nullptr;
    QLabel* usernameCaption = nullptr;
    QLineEdit* username = nullptr;
    QLabel* passwordCaption = nullptr;
    QLineEdit* password = nullptr;
    QCheckBox* startup = nullptr;
    QLineEdit* folderPath = nullptr;
    QPushButton* pickFolder = nullptr;
    QLabel* folderCaption = nullptr;
    QCheckBox* autoUpdate = nullptr;
    QFrame* firstSeparator = nullptr;
    QFrame* secondSeparator = nullptr;
    QLabel* status = nullptr;
    QPushButton* login = nullptr;

    /// Makes the widgets with their initial texts and lays them out in @p dialog. @p startupBox was made
    /// by the caller and is taken over.
    static SettingsPanel build(QDialog* dialog, QCheckBox* startupBox, const QString& savedUsername,
                               const QString& rootPath);

    void show(const PanelView& view) const;
    /// Puts the cursor into the password, its text selected, so that typing replaces it.
    void askForPasswordAgain() const;
    /// Shows where the sync folder lies.
    void showFolder(const QString& path) const;
};
