#pragma once

#include <QDialog>
#include <QStringList>

class QGroupBox;

/// Asks which of several accounts to sign in to. It stays open until its owner closes it.
class PickRacun final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(PickRacun)

public:
    /// One choice for each of @p ids, in their order; none is chosen at first.
    explicit PickRacun(const QStringList& ids);

signals:
    void PickedRacun(QString id);

private slots:
    void dologin();

private:
    QStringList m_ids;
    QGroupBox* m_group;
};
