// What the product is called and which release of it this is, for code and for the resource compiler. Macros,
// so that literals can be joined with them.
#pragma once

#define VEXTRA_WIDE_LITERAL(text) L##text
#define VEXTRA_WIDE(text) VEXTRA_WIDE_LITERAL(text)

// A release changes this line and no other: the build reads the numbers for Windows off it.
#define VEXTRA_VERSION "0.2.0-beta.5"
#define VEXTRA_VERSION_W VEXTRA_WIDE(VEXTRA_VERSION)
// What all releases of this line share: the camera keeps its name from one to the next.
#define VEXTRA_RELEASE_LINE_W L"0.2 beta"

// The program's file without its extension; also the name by which it calls on servers.
#define VEXTRA_PROGRAM "CameraVirtualVextraMF"
#define VEXTRA_PROGRAM_W VEXTRA_WIDE(VEXTRA_PROGRAM)

// What people read: the product; the camera in the lists of their programs; the short name.
#define VEXTRA_TITLE_W L"Câmera Virtual Vextra MF"
#define VEXTRA_CAMERA_NAME_W L"Camera Virtual Vextra MF " VEXTRA_RELEASE_LINE_W
#define VEXTRA_SHORT_NAME_W L"Vextra MF"

// The path below %LOCALAPPDATA%, %ProgramData% and the registry's SOFTWARE; and the first of these in the
// earlier release, where it is only read.
#define VEXTRA_FOLDER_W L"Vextra\\CameraVirtualMFBeta"
#define VEXTRA_LEGACY_FOLDER_W L"Vextra\\CameraVirtualMF"

// What the session's named objects begin with; and the class of the camera's media source, whose first digits
// the main window's class carries.
#define VEXTRA_OBJECT_PREFIX_W L"VextraMfBeta"
#define VEXTRA_CLASS_DIGITS_W L"F7E23FCF"
#define VEXTRA_CAMERA_CLASS_W L"{" VEXTRA_CLASS_DIGITS_W L"-2FFF-4D62-BB1C-50891180E2CC}"
