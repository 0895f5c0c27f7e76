#pragma once

#include <QMetaMethod>
#include <QStringList>

/// The signatures of one kind that a class declares itself, in the order of its meta-object.
inline QStringList methodsOf(const QMetaObject& meta, QMetaMethod::MethodType type)
{
    QStringList signatures;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        if (meta.method(i).methodType() == type)
            signatures << QString::fromLatin1(meta.method(i).methodSignature());
    }
    return signatures;
}

inline QStringList signalsOf(const QMetaObject& meta)
{
    return methodsOf(meta, QMetaMethod::Signal);
}

inline QStringList slotsOf(const QMetaObject& meta)
{
    return methodsOf(meta, QMetaMethod::Slot);
}
