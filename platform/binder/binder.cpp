#include "binder.h"

struct AIBinder_Weak {
    AIBinder* const binder;
    const std::shared_ptr<BinderReferences> references;
};

void AIBinder_incStrong(AIBinder* binder) {
    const std::lock_guard lock(binder->references->mutex);
    ++binder->references->strong;
}

void AIBinder_decStrong(AIBinder* binder) {
    if (binder == nullptr) return;
    bool last;
    {
        const std::lock_guard lock(binder->references->mutex);
        last = --binder->references->strong == 0;
    }
    if (last) delete binder;
}

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) {
    return new AIBinder_Weak{binder, binder->references};
}

void AIBinder_Weak_delete(AIBinder_Weak* weak) {
    delete weak;
}

AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weak) {
    const std::lock_guard lock(weak->references->mutex);
    if (weak->references->strong == 0) return nullptr;
    ++weak->references->strong;
    return weak->binder;
}
