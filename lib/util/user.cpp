#include <util/user.h>

#include <pwd.h>
#include <unistd.h>

#include <qel/qelp.h>

namespace {

QelStatus find_file(const char *before_login, qel::Owned<char> *path_out) {
    CallingUser user;
    if (const QelStatus status = find_calling_user(&user); status != QEL_OK)
        return status;
    constexpr char format[] = "%s/%s%s.KEYPKG";
    const std::size_t size = std::strlen(user.home) + std::strlen(before_login) +
                             std::strlen(user.login_name) + sizeof format;
    path_out->reset(static_cast<char *>(std::malloc(size)));
    if (*path_out == nullptr)
        return QEL_ERR_NO_MEMORY;
    return __qel_snprintf(path_out->get(), size, format, user.home, before_login,
                          user.login_name) == 0
               ? QEL_OK
               : QEL_ERR_BUFFER_SIZE;
}

} // namespace

QelStatus find_calling_user(CallingUser *user) {
    passwd entry;
    passwd *found = nullptr;
    if (getpwuid_r(getuid(), &entry, user->work, sizeof user->work, &found) != 0 ||
        found == nullptr)
        return QEL_ERR_UNKNOWN_USER;
    user->login_name = found->pw_name;
    user->home = found->pw_dir;
    return QEL_OK;
}

QelStatus name_or_login(const char **name, CallingUser *user) {
    if (*name != nullptr)
        return QEL_OK;
    const QelStatus status = find_calling_user(user);
    if (status == QEL_OK)
        *name = user->login_name;
    return status;
}

QelStatus find_keypkg_file(qel::Owned<char> *path_out) {
    return find_file("", path_out);
}

QelStatus find_hidden_keypkg_file(qel::Owned<char> *path_out) {
    return find_file(".", path_out);
}
