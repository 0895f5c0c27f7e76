#pragma once

#include <QCoreApplication>
#include <QStringList>
#include <QTranslator>

/// A language that has one word for several things.
class OneWord final : public QTranslator
{
    Q_DISABLE_COPY_MOVE(OneWord)

public:
    explicit OneWord(const QStringList& things)
        : m_things(things)
    {
        QCoreApplication::installTranslator(this);
    }
    ~OneWord() override
    {
        QCoreApplication::removeTranslator(this);
    }

    static QString word()
    {
        return QStringLiteral("Naprej");
    }

    bool isEmpty() const override
    {
        return false;
    }

    QString translate(const char* context, const char* sourceText, const char* disambiguation, int n) const override
    {
        Q_UNUSED(context)
        Q_UNUSED(disambiguation)
        Q_UNUSED(n)
        return m_things.contains(QLatin1String(sourceText)) ? word() : QString();
    }

private:
    QStringList m_things;
};
