// user.h: the calling user's entry in the user database, and the default files of that user.
#ifndef UTIL_USER_H
#define UTIL_USER_H

#include <lib/memory.h>
#include <qel/qel.h>

struct CallingUser {
    const char *login_name; // these two point into work
    const char *home;
    char work[1024];
};

// QEL_ERR_UNKNOWN_USER: the user has no entry, or one that work cannot hold.
QelStatus find_calling_user(CallingUser *user);

// Gives a null *name the login name of the calling user, which stays in user. QEL_ERR_UNKNOWN_USER.
QelStatus name_or_login(const char **name, CallingUser *user);

// The key-package files in the home of the calling user. QEL_ERR_UNKNOWN_USER, QEL_ERR_NO_MEMORY.
QelStatus find_keypkg_file(qel::Owned<char> *path_out);        // HOME/LOGIN.KEYPKG
QelStatus find_hidden_keypkg_file(qel::Owned<char> *path_out); // HOME/.LOGIN.KEYPKG

#endif
