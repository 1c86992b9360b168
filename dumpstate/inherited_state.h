#pragma once

namespace aidl::android::hardware::dumpstate {

// Puts what a process inherits from whoever started it into the state that the service relies on:
// signal dispositions, the mode of new files, and something open at descriptors 0 to 2. To be
// called before anything opens a descriptor and before there is a second thread.
void resetInheritedState();

}  // namespace aidl::android::hardware::dumpstate
