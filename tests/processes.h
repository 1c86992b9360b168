#pragma once

#include <set>
#include <string>

// What this pid namespace and this process held when the census was taken.
class ProcessCensus {
  public:
    ProcessCensus();

    // The processes, and this process's descriptors and threads, that have come since and don't go
    // away within a few seconds; "" when there are none.
    std::string Newcomers() const;

  private:
    static std::set<std::string> Take();
    std::set<std::string> before_;
};
