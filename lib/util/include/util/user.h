// user.h: the calling user's entry in the user database.
#ifndef UTIL_USER_H
#define UTIL_USER_H

#include <qel/qel.h>

struct CallingUser {
    const char *login_name; // these two point into work
    const char *home;
    char work[1024];
};

// QEL_ERR_UNKNOWN_USER: the user has no entry, or one that work cannot hold.
QelStatus find_calling_user(CallingUser *user);

#endif
