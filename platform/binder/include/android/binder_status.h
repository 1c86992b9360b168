#pragma once

#include <cstdint>

// Outcomes of binder calls on a plain Linux host. A binder_status_t is 0 or a negative errno.

extern "C" {

using binder_status_t = int32_t;
enum : binder_status_t { STATUS_OK = 0 };

using binder_exception_t = int32_t;
enum : binder_exception_t {
    EX_NONE = 0,
    EX_ILLEGAL_ARGUMENT = -3,
};

// The status that a service's operation ends with. Owned by the caller of the two makers.
struct AStatus;
AStatus* AStatus_newOk();
AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message);
bool AStatus_isOk(const AStatus* status);
binder_exception_t AStatus_getExceptionCode(const AStatus* status);
// Valid as long as the status.
const char* AStatus_getMessage(const AStatus* status);
void AStatus_delete(AStatus* status);

}  // extern "C"
