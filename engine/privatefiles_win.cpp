#include "engine/privatefiles.h"

#include "base/log.h"
#include "base/longpath.h"

#include <windows.h>

#include <sddl.h>

#include <array>
#include <string>

namespace
{

/// In the system's text form; empty when it cannot be told.
QString currentUser()
{
    HANDLE token = nullptr;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) == 0)
        return {};
    alignas(TOKEN_USER) std::array<char, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> user = {};
    DWORD size = 0;
    const bool isKnown = GetTokenInformation(token, TokenUser, user.data(), user.size(), &size) != 0;
    CloseHandle(token);
    wchar_t* text = nullptr;
    if (!isKnown || ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid, &text) == 0)
        return {};
    const QString name = QString::fromWCharArray(text);
    LocalFree(text);
    return name;
}

} // namespace

void privatefiles::restrict(const QString& path)
{
    const std::wstring name = base::ofAnyLength(path);
    const DWORD attributes = GetFileAttributesW(name.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return;
    // Full access for the user, the system and its administrators, and nothing taken over from the directory above; in
    // a directory, what is made there takes it over.
    const bool isDirectory = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const QString list = QStringLiteral("D:P(A;%1;FA;;;%2)(A;%1;FA;;;SY)(A;%1;FA;;;BA)")
                             .arg(isDirectory ? QStringLiteral("OICI") : QString(), currentUser());
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const bool isSet =
        ConvertStringSecurityDescriptorToSecurityDescriptorW(list.toStdWString().c_str(), SDDL_REVISION_1, &descriptor,
                                                             nullptr) &&
        SetFileSecurityW(name.c_str(), DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, descriptor);
    if (!isSet) {
        const QString reason = qt_error_string();
        ORVEL_LOG << "Unable to restrict" << path << reason;
    }
    LocalFree(descriptor);
}

bool privatefiles::replace(const QString& path, const QString& newText)
{
    const std::wstring from = base::ofAnyLength(newText);
    const std::wstring to = base::ofAnyLength(path);
    const HANDLE file = CreateFileW(from.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
        FlushFileBuffers(file);
        CloseHandle(file);
    }
    return MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
}
