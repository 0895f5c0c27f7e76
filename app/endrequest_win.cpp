#include "app/endrequest.h"

#include <windows.h>

namespace
{

constexpr const wchar_t* windowClass = L"OrvelStorage.EndRequest";

} // namespace

/// A window that is never shown. The message goes to the windows that there are, and the client's others come late in
/// its start.
struct EndRequest::Private final
{
    Q_DISABLE_COPY_MOVE(Private)

    explicit Private(EndRequest& request)
        : m_request(request)
    {
        WNDCLASSW description = {};
        description.lpfnWndProc = &Private::receive;
        description.hInstance = GetModuleHandleW(nullptr);
        description.lpszClassName = windowClass;
        RegisterClassW(&description);
        m_window =
            CreateWindowExW(0, windowClass, L"", 0, 0, 0, 0, 0, nullptr, nullptr, description.hInstance, nullptr);
        if (m_window == nullptr)
            qWarning("No window for requests to end: error %lu", GetLastError());
        else
            SetWindowLongPtrW(m_window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    }

    ~Private()
    {
        if (m_window != nullptr)
            DestroyWindow(m_window);
        UnregisterClassW(windowClass, GetModuleHandleW(nullptr));
    }

private:
    static LRESULT CALLBACK receive(HWND window, UINT message, WPARAM first, LPARAM second)
    {
        const auto* self = reinterpret_cast<const Private*>(GetWindowLongPtrW(window, GWLP_USERDATA));
        if (self != nullptr && message == self->m_end)
            emit self->m_request.asked();
        return DefWindowProcW(window, message, first, second);
    }

    EndRequest& m_request;
    HWND m_window = nullptr;
    /// The installer knows it by the same name.
    const UINT m_end = RegisterWindowMessageW(L"OrvelStorage.End");
};

EndRequest::EndRequest()
    : m_private(std::make_unique<Private>(*this))
{
}

EndRequest::~EndRequest() = default;
