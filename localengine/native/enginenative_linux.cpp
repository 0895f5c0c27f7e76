// What takes the virtual machine many calls, each with a change of threads, in one: looking at all entries of a
// directory, and copying small files. localengine/src/engine_native.erl says what each function promises.

#include <erl_nif.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace
{

using Term = ERL_NIF_TERM;

Term atom(ErlNifEnv* env, const char* name)
{
    return enif_make_atom(env, name);
}

// The names that OTP has for them.
const char* errorName(int error)
{
    static const std::pair<int, const char*> names[] = {
        {EACCES, "eacces"}, {EBUSY, "ebusy"},   {EDQUOT, "edquot"}, {EEXIST, "eexist"}, {EFBIG, "efbig"},
        {EIO, "eio"},       {EISDIR, "eisdir"}, {ELOOP, "eloop"},   {EMFILE, "emfile"}, {ENAMETOOLONG, "enametoolong"},
        {ENFILE, "enfile"}, {ENOENT, "enoent"}, {ENOMEM, "enomem"}, {ENOSPC, "enospc"}, {ENOTDIR, "enotdir"},
        {EPERM, "eperm"},   {EROFS, "erofs"},   {ESTALE, "estale"}, {EXDEV, "exdev"}};
    const auto* const found =
        std::find_if(std::begin(names), std::end(names), [error](const auto& name) { return name.first == error; });
    return found == std::end(names) ? "einval" : found->second;
}

Term failure(ErlNifEnv* env, const char* reason)
{
    return enif_make_tuple2(env, atom(env, "error"), atom(env, reason));
}

class File final
{
public:
    File(const std::string& path, int flags, mode_t mode = 0) noexcept
        : m_descriptor(::open(path.c_str(), flags | O_CLOEXEC, mode))
    {
    }
    ~File()
    {
        close();
    }
    File(const File&) = delete;
    File(File&&) = delete;
    File& operator=(const File&) = delete;
    File& operator=(File&&) = delete;

    bool isOpen() const noexcept
    {
        return m_descriptor >= 0;
    }
    operator int() const noexcept
    {
        return m_descriptor;
    }
    // False if what was written cannot be kept.
    bool close() noexcept
    {
        return m_descriptor < 0 || ::close(std::exchange(m_descriptor, -1)) == 0;
    }

private:
    int m_descriptor = -1;
};

// False for what can be no path.
bool readPath(ErlNifEnv* env, Term term, std::string& path)
{
    ErlNifBinary bytes;
    if (enif_inspect_binary(env, term, &bytes) == 0 || std::memchr(bytes.data, 0, bytes.size) != nullptr)
        return false;
    path.assign(reinterpret_cast<const char*>(bytes.data), bytes.size);
    return true;
}

Term signature(ErlNifEnv* env, const struct stat& info)
{
    return enif_make_tuple4(env, enif_make_int64(env, info.st_size), enif_make_int64(env, info.st_mtime),
                            enif_make_int64(env, info.st_ctime), enif_make_uint64(env, info.st_ino));
}

Term entry(ErlNifEnv* env, const struct stat& info)
{
    if (S_ISREG(info.st_mode))
        return enif_make_tuple2(env, atom(env, "file"), signature(env, info));
    if (!S_ISDIR(info.st_mode))
        return atom(env, "other");
    const Term none = enif_make_int(env, 0);
    return enif_make_tuple2(env, atom(env, "dir"),
                            enif_make_tuple4(env, none, none, none, enif_make_uint64(env, info.st_ino)));
}

// ---- A directory ---------------------------------------------------------------------------------------------

bool readNames(DIR* dir, std::vector<std::string>& names)
{
    for (;;) {
        errno = 0;
        const dirent* const found = readdir(dir);
        if (found == nullptr)
            return errno == 0;
        if (std::strcmp(found->d_name, ".") != 0 && std::strcmp(found->d_name, "..") != 0)
            names.emplace_back(found->d_name);
    }
}

Term look(ErlNifEnv* env, int dir, const std::string& name)
{
    struct stat info = {};
    return fstatat(dir, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 ? entry(env, info) : atom(env, "unknown");
}

Term listing(ErlNifEnv* env, int /*argc*/, const Term argv[])
{
    std::string path;
    if (!readPath(env, argv[0], path))
        return failure(env, "einval");
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(path.c_str()), closedir);
    std::vector<std::string> names;
    if (!dir || !readNames(dir.get(), names))
        return failure(env, errorName(errno));
    // Last first, as a list is built from its end.
    std::sort(names.begin(), names.end(), std::greater<>());
    Term list = enif_make_list(env, 0);
    for (const std::string& name : names) {
        Term bytes = 0;
        std::memcpy(enif_make_new_binary(env, name.size(), &bytes), name.data(), name.size());
        list = enif_make_list_cell(env, enif_make_tuple2(env, bytes, look(env, dirfd(dir.get()), name)), list);
    }
    return enif_make_tuple2(env, atom(env, "ok"), list);
}

// ---- Small files ---------------------------------------------------------------------------------------------

struct Copy final
{
    std::string from;
    std::string temp;
    std::string to;
    // The source as it was seen.
    ErlNifSInt64 size = 0;
    ErlNifSInt64 modified = 0;
    ErlNifSInt64 changed = 0;
    ErlNifUInt64 inode = 0;
};

bool isAsSeen(const struct stat& info, const Copy& copy)
{
    return S_ISREG(info.st_mode) && info.st_size == copy.size && info.st_mtime == copy.modified &&
           info.st_ctime == copy.changed && info.st_ino == copy.inode;
}

// As many bytes as were asked for, or up to the file's end; -1 if that fails.
ssize_t readUpTo(int file, unsigned char* bytes, size_t size)
{
    size_t have = 0;
    while (have < size) {
        const ssize_t got = read(file, bytes + have, size - have);
        if (got == 0)
            break;
        if (got > 0)
            have += static_cast<size_t>(got);
        else if (errno != EINTR)
            return -1;
    }
    return static_cast<ssize_t>(have);
}

// Null, or why not; so do the next three.
const char* readAll(const Copy& copy, ErlNifBinary& content, mode_t& mode)
{
    const File file(copy.from, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    struct stat info = {};
    if (!file.isOpen() || fstat(file, &info) != 0)
        return errorName(errno);
    if (!isAsSeen(info, copy))
        return "changed";
    mode = info.st_mode;
    const ssize_t got = readUpTo(file, content.data, content.size);
    unsigned char beyond = 0;
    if (got < 0)
        return errorName(errno);
    return static_cast<size_t>(got) == content.size && readUpTo(file, &beyond, 1) == 0 ? nullptr : "changed";
}

const char* writeAll(const Copy& copy, File& file, const ErlNifBinary& content, mode_t mode, ino_t& inode)
{
    for (size_t done = 0; done < content.size;) {
        const ssize_t put = write(file, content.data + done, content.size - done);
        if (put >= 0)
            done += static_cast<size_t>(put);
        else if (errno != EINTR)
            return errorName(errno);
    }
    const timespec time = {copy.modified, 0};
    const timespec times[] = {time, time};
    struct stat info = {};
    if (fchmod(file, (mode & 0777U) | 0400U) != 0 || futimens(file, times) != 0 || fstat(file, &info) != 0)
        return errorName(errno);
    inode = info.st_ino;
    return file.close() ? nullptr : errorName(errno);
}

// Replaces nothing that somebody else has just put there.
const char* putInPlace(const Copy& copy)
{
    if (renameat2(AT_FDCWD, copy.temp.c_str(), AT_FDCWD, copy.to.c_str(), RENAME_NOREPLACE) == 0)
        return nullptr;
    if (errno == EEXIST)
        return "changed";
    // Not every file system can do that.
    return errno == EINVAL || errno == ENOSYS ? "enotsup" : errorName(errno);
}

const char* copyFile(const Copy& copy, ErlNifBinary& content, struct stat& made)
{
    mode_t mode = 0;
    ino_t inode = 0;
    if (const char* const failed = readAll(copy, content, mode))
        return failed;
    File temp(copy.temp, O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (!temp.isOpen())
        return errorName(errno);
    const char* failed = writeAll(copy, temp, content, mode, inode);
    struct stat info = {};
    if (failed == nullptr && (lstat(copy.from.c_str(), &info) != 0 || !isAsSeen(info, copy)))
        failed = "changed";
    if (failed == nullptr)
        failed = putInPlace(copy);
    if (failed != nullptr) {
        unlink(copy.temp.c_str());
        return failed;
    }
    // What stands under the name now must be what was put there.
    const bool stands = lstat(copy.to.c_str(), &made) == 0 && S_ISREG(made.st_mode) && made.st_ino == inode &&
                        made.st_size == copy.size && made.st_mtime == copy.modified;
    return stands ? nullptr : "changed";
}

Term copyOne(ErlNifEnv* env, const Copy& copy)
{
    ErlNifBinary content;
    if (enif_alloc_binary(static_cast<size_t>(copy.size), &content) == 0)
        return failure(env, "enomem");
    struct stat made = {};
    if (const char* const failed = copyFile(copy, content, made)) {
        enif_release_binary(&content);
        return failure(env, failed);
    }
    return enif_make_tuple3(env, atom(env, "ok"), enif_make_binary(env, &content), signature(env, made));
}

bool readCopy(ErlNifEnv* env, Term term, Copy& copy)
{
    int arity = 0;
    int signatureArity = 0;
    const Term* members = nullptr;
    const Term* seen = nullptr;
    return enif_get_tuple(env, term, &arity, &members) != 0 && arity == 4 && readPath(env, members[0], copy.from) &&
           enif_get_tuple(env, members[1], &signatureArity, &seen) != 0 && signatureArity == 4 &&
           enif_get_int64(env, seen[0], &copy.size) != 0 && enif_get_int64(env, seen[1], &copy.modified) != 0 &&
           enif_get_int64(env, seen[2], &copy.changed) != 0 && enif_get_uint64(env, seen[3], &copy.inode) != 0 &&
           copy.size >= 0 && readPath(env, members[2], copy.temp) && readPath(env, members[3], copy.to);
}

Term copySmall(ErlNifEnv* env, int /*argc*/, const Term argv[])
{
    Term left = argv[0];
    Term file = 0;
    std::vector<Term> results;
    while (enif_get_list_cell(env, left, &file, &left) != 0) {
        Copy copy;
        results.push_back(readCopy(env, file, copy) ? copyOne(env, copy) : failure(env, "einval"));
    }
    return enif_make_list_from_array(env, results.data(), static_cast<unsigned>(results.size()));
}

ErlNifFunc functions[] = {
    {"listing", 1, listing, ERL_NIF_DIRTY_JOB_IO_BOUND},
    {"copy_small", 1, copySmall, ERL_NIF_DIRTY_JOB_IO_BOUND},
};

} // namespace

ERL_NIF_INIT(engine_native, functions, nullptr, nullptr, nullptr, nullptr)
