#pragma once

#include <aidl/android/hardware/dumpstate/IDumpstateDevice.h>

namespace aidl::android::hardware::dumpstate {

// The server side: a service derives from it and implements the three operations.
class BnDumpstateDevice : public ndk::BnCInterface<IDumpstateDevice> {
  public:
    ndk::ScopedAStatus getInterfaceVersion(int32_t* version) override;
    ndk::ScopedAStatus getInterfaceHash(std::string* hash) override;

  protected:
    ndk::SpAIBinder createBinder() override;
};

}  // namespace aidl::android::hardware::dumpstate
