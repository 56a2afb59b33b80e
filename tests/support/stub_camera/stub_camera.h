// What a test and the stub mfsensorgroup.dll tell each other, by the environment of the program that loads
// the stub.
#pragma once

namespace vextra::test {

// The file into which the stub writes a line for each call, in UTF-8.
inline constexpr wchar_t kCameraRecordVariable[] = L"VEXTRA_STUB_CAMERA_RECORD";

// CALL=RESULT in hexadecimal: what that one call is to answer. CALL is the word that its line begins with.
// A `create` that succeeds all the same gives no camera.
inline constexpr wchar_t kCameraAnswerVariable[] = L"VEXTRA_STUB_CAMERA_ANSWER";

// What the stub gives as the camera's symbolic link.
inline constexpr wchar_t kCameraLink[] =
    L"\\\\?\\swd#vcamdevapi#câmera–тест#{e5323777-f976-4f5b-9b94-b94699c46e44}\\{f7e23fcf}";

}  // namespace vextra::test
