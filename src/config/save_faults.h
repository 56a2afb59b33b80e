// Where a test may cut a save off. The broker is built without any of this.
#pragma once

namespace vextra {

#ifdef VEXTRA_SAVE_FAULTS
// Called before the first file operation of a save and after each; defined by the test program.
void betweenSaveSteps();
#else
inline void betweenSaveSteps() {}
#endif

}  // namespace vextra
