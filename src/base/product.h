// The broker's version, for code and for the resource compiler: a release changes it here and nowhere else.
// Macros, so that literals can be joined with it.
#pragma once

#define VEXTRA_VERSION "0.2.0-beta.5"
#define VEXTRA_VERSION_NUMBERS 0, 2, 0, 5

#define VEXTRA_WIDE_LITERAL(text) L##text
#define VEXTRA_WIDE(text) VEXTRA_WIDE_LITERAL(text)
#define VEXTRA_VERSION_W VEXTRA_WIDE(VEXTRA_VERSION)
