/* Every text is its own translation. */
#include "libintl.h"

char *gettext(const char *text) { return (char *)text; }

char *dgettext(const char *domain, const char *text)
{
    (void)domain;
    return (char *)text;
}

char *dcgettext(const char *domain, const char *text, int category)
{
    (void)domain;
    (void)category;
    return (char *)text;
}

char *ngettext(const char *one, const char *many, unsigned long count) { return (char *)(count == 1 ? one : many); }

char *dngettext(const char *domain, const char *one, const char *many, unsigned long count)
{
    (void)domain;
    return (char *)(count == 1 ? one : many);
}

char *textdomain(const char *domain) { return (char *)(domain ? domain : "messages"); }

char *bindtextdomain(const char *domain, const char *folder)
{
    (void)domain;
    return (char *)folder;
}

char *bind_textdomain_codeset(const char *domain, const char *codeset)
{
    (void)domain;
    return (char *)codeset;
}
