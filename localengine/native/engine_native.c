/* What takes the virtual machine many calls, each with a change of threads, in one: looking at all entries of a
 * directory, and copying small files. The Erlang module of the same name says what each function promises. */
#define _GNU_SOURCE

#include <erl_nif.h>

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

/* The names that OTP has for them. */
static const char *errorName(int error)
{
    switch (error) {
    case EACCES: return "eacces";
    case EBUSY: return "ebusy";
    case EDQUOT: return "edquot";
    case EEXIST: return "eexist";
    case EFBIG: return "efbig";
    case EIO: return "eio";
    case EISDIR: return "eisdir";
    case ELOOP: return "eloop";
    case EMFILE: return "emfile";
    case ENAMETOOLONG: return "enametoolong";
    case ENFILE: return "enfile";
    case ENOENT: return "enoent";
    case ENOMEM: return "enomem";
    case ENOSPC: return "enospc";
    case ENOTDIR: return "enotdir";
    case EPERM: return "eperm";
    case EROFS: return "erofs";
    case ESTALE: return "estale";
    case EXDEV: return "exdev";
    default: return "einval";
    }
}

static ERL_NIF_TERM failure(ErlNifEnv *env, const char *reason)
{
    return enif_make_tuple2(env, enif_make_atom(env, "error"), enif_make_atom(env, reason));
}

static ERL_NIF_TERM systemFailure(ErlNifEnv *env)
{
    return failure(env, errorName(errno));
}

/* A path as the system takes it; free() it. Null, with the reason in errno, for what can be none. */
static char *pathFrom(ErlNifEnv *env, ERL_NIF_TERM term)
{
    ErlNifBinary bytes;
    if (!enif_inspect_binary(env, term, &bytes) || memchr(bytes.data, 0, bytes.size) != NULL) {
        errno = EINVAL;
        return NULL;
    }
    char *path = malloc(bytes.size + 1);
    if (path == NULL)
        return NULL;
    memcpy(path, bytes.data, bytes.size);
    path[bytes.size] = 0;
    return path;
}

static ERL_NIF_TERM signature(ErlNifEnv *env, const struct stat *info)
{
    return enif_make_tuple4(env, enif_make_int64(env, info->st_size), enif_make_int64(env, info->st_mtime),
        enif_make_int64(env, info->st_ctime), enif_make_uint64(env, info->st_ino));
}

static ERL_NIF_TERM entry(ErlNifEnv *env, const struct stat *info)
{
    if (S_ISREG(info->st_mode))
        return enif_make_tuple2(env, enif_make_atom(env, "file"), signature(env, info));
    if (!S_ISDIR(info->st_mode))
        return enif_make_atom(env, "other");
    const ERL_NIF_TERM none = enif_make_int(env, 0);
    return enif_make_tuple2(env, enif_make_atom(env, "dir"),
        enif_make_tuple4(env, none, none, none, enif_make_uint64(env, info->st_ino)));
}

/* ---- A directory ------------------------------------------------------- */

struct Names {
    char **at;
    size_t count;
    size_t room;
};

static bool addName(struct Names *names, const char *name)
{
    if (names->count == names->room) {
        const size_t room = names->room == 0 ? 64 : 2 * names->room;
        char **at = realloc(names->at, room * sizeof *at);
        if (at == NULL)
            return false;
        names->at = at;
        names->room = room;
    }
    char *copy = strdup(name);
    if (copy == NULL)
        return false;
    names->at[names->count++] = copy;
    return true;
}

/* Last first, as a list is built from its end. */
static int byNameBackwards(const void *left, const void *right)
{
    return -strcmp(*(char *const *)left, *(char *const *)right);
}

static bool readNames(DIR *dir, struct Names *names)
{
    for (;;) {
        errno = 0;
        const struct dirent *found = readdir(dir);
        if (found == NULL)
            return errno == 0;
        if (strcmp(found->d_name, ".") != 0 && strcmp(found->d_name, "..") != 0 && !addName(names, found->d_name)) {
            errno = ENOMEM;
            return false;
        }
    }
}

static ERL_NIF_TERM look(ErlNifEnv *env, int dir, const char *name)
{
    struct stat info;
    return fstatat(dir, name, &info, AT_SYMLINK_NOFOLLOW) == 0 ? entry(env, &info) : enif_make_atom(env, "unknown");
}

static ERL_NIF_TERM listingOf(ErlNifEnv *env, DIR *dir, struct Names *names)
{
    if (!readNames(dir, names))
        return systemFailure(env);
    qsort(names->at, names->count, sizeof *names->at, byNameBackwards);
    ERL_NIF_TERM list = enif_make_list(env, 0);
    for (size_t i = 0; i < names->count; ++i) {
        const size_t size = strlen(names->at[i]);
        ERL_NIF_TERM name;
        memcpy(enif_make_new_binary(env, size, &name), names->at[i], size);
        list = enif_make_list_cell(env, enif_make_tuple2(env, name, look(env, dirfd(dir), names->at[i])), list);
    }
    return enif_make_tuple2(env, enif_make_atom(env, "ok"), list);
}

static ERL_NIF_TERM listing(ErlNifEnv *env, int argc, const ERL_NIF_TERM argv[])
{
    (void)argc;
    char *path = pathFrom(env, argv[0]);
    DIR *dir = path == NULL ? NULL : opendir(path);
    free(path);
    if (dir == NULL)
        return systemFailure(env);
    struct Names names = {NULL, 0, 0};
    const ERL_NIF_TERM result = listingOf(env, dir, &names);
    for (size_t i = 0; i < names.count; ++i)
        free(names.at[i]);
    free(names.at);
    closedir(dir);
    return result;
}

/* ---- A small file ------------------------------------------------------ */

struct Copy {
    char *from;
    char *temp;
    char *to;
    ErlNifSInt64 size;
    ErlNifSInt64 modified;
    ErlNifSInt64 changed;
    ErlNifUInt64 inode;
};

static bool isAsSeen(const struct stat *info, const struct Copy *copy)
{
    return S_ISREG(info->st_mode) && info->st_size == copy->size && info->st_mtime == copy->modified
        && info->st_ctime == copy->changed && info->st_ino == copy->inode;
}

/* Null, or why not. */
static const char *readAll(const struct Copy *copy, ErlNifBinary *content, mode_t *mode)
{
    const int file = open(copy->from, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0)
        return errorName(errno);
    const char *failed = NULL;
    struct stat info;
    size_t have = 0;
    ssize_t got = 1;
    if (fstat(file, &info) != 0)
        failed = errorName(errno);
    else if (!isAsSeen(&info, copy))
        failed = "changed";
    /* Up to the end, which a file that has grown does not reach in time. */
    while (failed == NULL && got != 0) {
        if (have == content->size) {
            char beyond;
            got = read(file, &beyond, 1);
            if (got > 0)
                failed = "changed";
        } else {
            got = read(file, content->data + have, content->size - have);
            have += got > 0 ? (size_t)got : 0;
        }
        if (got < 0 && errno != EINTR)
            failed = errorName(errno);
    }
    close(file);
    if (failed == NULL && have != content->size)
        failed = "changed";
    *mode = info.st_mode;
    return failed;
}

static const char *writeAll(const struct Copy *copy, const ErlNifBinary *content, mode_t mode, ino_t *inode)
{
    const int file = open(copy->temp, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file < 0)
        return errorName(errno);
    const char *failed = NULL;
    for (size_t done = 0; failed == NULL && done < content->size;) {
        const ssize_t put = write(file, content->data + done, content->size - done);
        if (put >= 0)
            done += (size_t)put;
        else if (errno != EINTR)
            failed = errorName(errno);
    }
    const struct timespec times[2] = {{.tv_sec = copy->modified}, {.tv_sec = copy->modified}};
    struct stat info;
    /* The engine must be able to write what it made. */
    if (failed == NULL
        && (fchmod(file, (mode & 0777) | 0600) != 0 || futimens(file, times) != 0 || fstat(file, &info) != 0))
        failed = errorName(errno);
    *inode = info.st_ino;
    if (close(file) != 0 && failed == NULL)
        failed = errorName(errno);
    return failed;
}

/* Replaces nothing that somebody else has just put there. */
static const char *putInPlace(const struct Copy *copy)
{
    if (renameat2(AT_FDCWD, copy->temp, AT_FDCWD, copy->to, RENAME_NOREPLACE) == 0)
        return NULL;
    if (errno == EEXIST)
        return "changed";
    /* Not every file system can do that. */
    return errno == EINVAL || errno == ENOSYS ? "enotsup" : errorName(errno);
}

static const char *copyFile(const struct Copy *copy, ErlNifBinary *content, struct stat *made)
{
    mode_t mode = 0;
    ino_t inode = 0;
    const char *failed = readAll(copy, content, &mode);
    if (failed != NULL)
        return failed;
    failed = writeAll(copy, content, mode, &inode);
    struct stat info;
    if (failed == NULL && (lstat(copy->from, &info) != 0 || !isAsSeen(&info, copy)))
        failed = "changed";
    if (failed == NULL)
        failed = putInPlace(copy);
    if (failed != NULL) {
        unlink(copy->temp);
        return failed;
    }
    /* What stands under the name now must be what was put there. */
    if (lstat(copy->to, made) != 0 || !S_ISREG(made->st_mode) || made->st_ino != inode
        || made->st_size != copy->size || made->st_mtime != copy->modified)
        return "changed";
    return NULL;
}

static bool signatureFrom(ErlNifEnv *env, ERL_NIF_TERM term, struct Copy *copy)
{
    int arity = 0;
    const ERL_NIF_TERM *members = NULL;
    return enif_get_tuple(env, term, &arity, &members) && arity == 4 && enif_get_int64(env, members[0], &copy->size)
        && enif_get_int64(env, members[1], &copy->modified) && enif_get_int64(env, members[2], &copy->changed)
        && enif_get_uint64(env, members[3], &copy->inode) && copy->size >= 0;
}

static ERL_NIF_TERM copyWith(ErlNifEnv *env, const struct Copy *copy)
{
    ErlNifBinary content;
    if (!enif_alloc_binary((size_t)copy->size, &content))
        return failure(env, "enomem");
    struct stat made;
    const char *failed = copyFile(copy, &content, &made);
    if (failed != NULL) {
        enif_release_binary(&content);
        return failure(env, failed);
    }
    return enif_make_tuple3(
        env, enif_make_atom(env, "ok"), enif_make_binary(env, &content), signature(env, &made));
}

static bool copyFrom(ErlNifEnv *env, ERL_NIF_TERM term, ERL_NIF_TERM *result)
{
    int arity = 0;
    const ERL_NIF_TERM *members = NULL;
    struct Copy copy = {0};
    if (!enif_get_tuple(env, term, &arity, &members) || arity != 4 || !signatureFrom(env, members[1], &copy))
        return false;
    copy.from = pathFrom(env, members[0]);
    copy.temp = pathFrom(env, members[2]);
    copy.to = pathFrom(env, members[3]);
    *result = copy.from != NULL && copy.temp != NULL && copy.to != NULL ? copyWith(env, &copy) : systemFailure(env);
    free(copy.from);
    free(copy.temp);
    free(copy.to);
    return true;
}

static ERL_NIF_TERM copySmall(ErlNifEnv *env, int argc, const ERL_NIF_TERM argv[])
{
    (void)argc;
    ERL_NIF_TERM left = argv[0];
    ERL_NIF_TERM file;
    ERL_NIF_TERM results = enif_make_list(env, 0);
    while (enif_get_list_cell(env, left, &file, &left)) {
        ERL_NIF_TERM result;
        if (!copyFrom(env, file, &result))
            return enif_make_badarg(env);
        results = enif_make_list_cell(env, result, results);
    }
    ERL_NIF_TERM inOrder = results;
    return enif_make_reverse_list(env, results, &inOrder) ? inOrder : enif_make_badarg(env);
}

static ErlNifFunc functions[] = {
    {"listing", 1, listing, ERL_NIF_DIRTY_JOB_IO_BOUND},
    {"copy_small", 1, copySmall, ERL_NIF_DIRTY_JOB_IO_BOUND},
};

ERL_NIF_INIT(engine_native, functions, NULL, NULL, NULL, NULL)
