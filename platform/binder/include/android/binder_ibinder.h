#pragma once

#include <android/binder_status.h>

// A binder on a plain Linux host: the reference-counted handle through which a service object is
// registered. Counts are atomic.

extern "C" {

struct AIBinder;
void AIBinder_incStrong(AIBinder* binder);
void AIBinder_decStrong(AIBinder* binder);  // deletes it with the last reference; null is allowed

// Does not keep the binder alive, and tells whether it still is.
struct AIBinder_Weak;
AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder);
void AIBinder_Weak_delete(AIBinder_Weak* weak);
// A strong reference that the caller owns, or null when the binder is gone.
AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weak);

}  // extern "C"
