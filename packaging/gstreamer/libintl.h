/* gettext's interface for a machine on which nothing is translated; see libintl.c. */
#ifndef VEXTRA_LIBINTL_H
#define VEXTRA_LIBINTL_H

#include <locale.h>

/* No category of Windows; GLib passes it to setlocale and takes a failure well. */
#ifndef LC_MESSAGES
#define LC_MESSAGES 1729
#endif

#define VEXTRA_FORMAT(number) __attribute__((__format_arg__(number)))

char *gettext(const char *text) VEXTRA_FORMAT(1);
char *dgettext(const char *domain, const char *text) VEXTRA_FORMAT(2);
char *dcgettext(const char *domain, const char *text, int category) VEXTRA_FORMAT(2);
char *ngettext(const char *one, const char *many, unsigned long count) VEXTRA_FORMAT(1) VEXTRA_FORMAT(2);
char *dngettext(const char *domain, const char *one, const char *many, unsigned long count)
    VEXTRA_FORMAT(2) VEXTRA_FORMAT(3);
char *textdomain(const char *domain);
char *bindtextdomain(const char *domain, const char *folder);
char *bind_textdomain_codeset(const char *domain, const char *codeset);

#endif
