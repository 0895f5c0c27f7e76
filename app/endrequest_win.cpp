#include "app/endrequest.h"

#include <QAbstractNativeEventFilter>
#include <QCoreApplication>

#include <windows.h>

struct EndRequest::Private final : QAbstractNativeEventFilter
{
    explicit Private(EndRequest& request)
        : m_request(request)
    {
        QCoreApplication::instance()->installNativeEventFilter(this);
    }

    bool nativeEventFilter(const QByteArray& eventType, void* message, long* result) override
    {
        Q_UNUSED(eventType)
        Q_UNUSED(result)
        if (static_cast<const MSG*>(message)->message == m_end)
            emit m_request.asked();
        return false;
    }

private:
    EndRequest& m_request;
    /// The installer knows it by the same name.
    const UINT m_end = RegisterWindowMessageW(L"OrvelStorage.End");
};

EndRequest::EndRequest()
    : m_private(std::make_unique<Private>(*this))
{
}

EndRequest::~EndRequest() = default;
