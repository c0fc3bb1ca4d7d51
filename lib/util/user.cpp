#include <util/user.h>

#include <pwd.h>
#include <unistd.h>

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
