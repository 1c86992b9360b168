#include <android-base/properties.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

const char* Reason(int error) {
    switch (error) {
        case EINVAL:
            return "not a property name (letters, digits and . _ - @ : only, no leading dot)";
        case EEXIST:
            return "already set; a ro. property can be set once, boot with --set to choose its "
                   "value";
        default:
            return std::strerror(error);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: setprop KEY VALUE\n", stderr);
        return 2;
    }
    // What the tree was made from.
    if (std::strcmp(argv[1], "vendor.sim.state") == 0) {
        std::fputs(
                "setprop: cannot set vendor.sim.state: a device is in the state it was booted in; "
                "leave, and choose another with ./dev shell --set vendor.sim.state=NAME\n",
                stderr);
        return 1;
    }
    if (android::base::SetProperty(argv[1], argv[2])) return 0;
    std::fprintf(stderr, "setprop: cannot set %s: %s\n", argv[1], Reason(errno));
    return 1;
}
