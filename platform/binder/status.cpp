#include <android/binder_status.h>

#include <string>

struct AStatus {
    binder_exception_t exception;
    std::string message;
};

AStatus* AStatus_newOk() {
    return new AStatus{EX_NONE, ""};
}

AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
    return new AStatus{exception, message};
}

bool AStatus_isOk(const AStatus* status) {
    return status->exception == EX_NONE;
}

binder_exception_t AStatus_getExceptionCode(const AStatus* status) {
    return status->exception;
}

const char* AStatus_getMessage(const AStatus* status) {
    return status->message.c_str();
}

void AStatus_delete(AStatus* status) {
    delete status;
}
