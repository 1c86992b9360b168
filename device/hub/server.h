#pragma once

#include <string>

#include "conversation.h"
#include "faults.h"

// Listens at the path, whatever was there, and serves any number of clients, each on a thread of
// its own. Returns 0 once SIGINT, SIGTERM or SIGHUP has come, or 1 with a sentence on standard
// error. Clients' threads may be left: hub and plan outlive the process's exit handlers.
int Serve(const std::string& path, Hub& hub, const FaultPlan& plan);
