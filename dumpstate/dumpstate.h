#pragma once

#include <aidl/android/hardware/dumpstate/BnDumpstateDevice.h>

#include <vector>

namespace aidl::android::hardware::dumpstate {

// The vendor dumpstate service. It keeps nothing between calls: its one setting, verbose logging,
// is a persistent property, read afresh whenever it is needed. Calls come on the binder thread, one
// at a time.
class Dumpstate : public BnDumpstateDevice {
  public:
    // Writes the board report to fds[0] and, when there is an fds[1] above 0, the log bundle to
    // that. Both stay the caller's. An unknown mode, no descriptor or a negative first one is an
    // illegal argument; every accepted call is OK, whatever its sections came to. All modes give
    // the same report, and the time-out is not used: each section has its own.
    ndk::ScopedAStatus dumpstateBoard(const std::vector<ndk::ScopedFileDescriptor>& fds,
                                      DumpstateMode mode, int64_t timeout_millis) override;
    // Both are always OK.
    ndk::ScopedAStatus getVerboseLoggingEnabled(bool* enabled) override;
    ndk::ScopedAStatus setVerboseLoggingEnabled(bool enabled) override;

    // The sections of the report, each with its entries in their fixed order. None closes fd, none
    // fails the report.
    void dumpBluetooth(int fd);
    void dumpRamoops(int fd);
    void dumpTouch(int fd);
    void dumpInterrupts(int fd);
    void dumpPowerSection(int fd);
    void dumpExtconStates(int fd);
    void dumpVelora(int fd);
    void dumpSleepStats(int fd);
    void dumpBldrLog(int fd);
    void dumpModem(int fd);

    // Packs the staging directory, streams the archive to bundle_fd and removes the temporary
    // folder, whatever failed. Nobody may be writing into it any more. What the commands print goes
    // to fd; failures are told there and in the system log.
    void createDumpstateBin(int fd, int bundle_fd);

  private:
    bool getVerboseLoggingEnabledImpl();
    ndk::ScopedAStatus dumpstateBoardImpl(const std::vector<ndk::ScopedFileDescriptor>& fds);
};

}  // namespace aidl::android::hardware::dumpstate
