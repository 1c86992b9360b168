#pragma once

// No new thread is to be had in this process as long as this lives. One at a time.
class NoThreads {
  public:
    NoThreads();
    ~NoThreads();
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;
};
