#include "binder.h"

struct AIBinder_Weak {
    AIBinder* const binder;
    const std::shared_ptr<std::atomic<int>> references;
};

void AIBinder_incStrong(AIBinder* binder) {
    ++*binder->references;
}

void AIBinder_decStrong(AIBinder* binder) {
    if (binder != nullptr && --*binder->references == 0) delete binder;
}

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) {
    return new AIBinder_Weak{binder, binder->references};
}

void AIBinder_Weak_delete(AIBinder_Weak* weak) {
    delete weak;
}

AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weak) {
    int strong = *weak->references;
    while (strong != 0 && !weak->references->compare_exchange_weak(strong, strong + 1)) {
    }
    return strong == 0 ? nullptr : weak->binder;
}
