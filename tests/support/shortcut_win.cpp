#include "tests/support/shortcut_win.h"

#include <QDir>

#include <windows.h>

#include <objbase.h>
#include <propkey.h>
#include <propsys.h>
#include <shlobj.h>

#include <array>
#include <string>

namespace
{

void readProperties(IShellLinkW& link, Shortcut& shortcut)
{
    IPropertyStore* properties = nullptr;
    if (FAILED(link.QueryInterface(IID_IPropertyStore, reinterpret_cast<void**>(&properties))))
        return;
    DWORD count = 0;
    shortcut.hasProperties = SUCCEEDED(properties->GetCount(&count));
    PROPVARIANT value;
    PropVariantInit(&value);
    if (SUCCEEDED(properties->GetValue(PKEY_AppUserModel_ID, &value)) && value.vt == VT_LPWSTR)
        shortcut.applicationId = QString::fromWCharArray(value.pwszVal);
    PropVariantClear(&value);
    properties->Release();
}

} // namespace

Shortcut readShortcut(const QString& path)
{
    Shortcut shortcut;
    const HRESULT com = CoInitialize(nullptr);
    IShellLinkW* link = nullptr;
    IPersistFile* file = nullptr;
    const std::wstring name = QDir::toNativeSeparators(path).toStdWString();
    if (SUCCEEDED(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                                   reinterpret_cast<void**>(&link))) &&
        SUCCEEDED(link->QueryInterface(IID_IPersistFile, reinterpret_cast<void**>(&file))) &&
        SUCCEEDED(file->Load(name.c_str(), STGM_READ))) {
        std::array<wchar_t, MAX_PATH> text{};
        link->GetPath(text.data(), MAX_PATH, nullptr, 0);
        shortcut.target = QString::fromWCharArray(text.data());
        link->GetWorkingDirectory(text.data(), MAX_PATH);
        shortcut.workingDirectory = QString::fromWCharArray(text.data());
        link->GetIconLocation(text.data(), MAX_PATH, &shortcut.iconIndex);
        shortcut.icon = QString::fromWCharArray(text.data());
        readProperties(*link, shortcut);
    }
    if (file != nullptr)
        file->Release();
    if (link != nullptr)
        link->Release();
    if (SUCCEEDED(com))
        CoUninitialize();
    return shortcut;
}
