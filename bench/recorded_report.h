#pragma once

#include <string>
#include <vector>

// What the service runs and reads for a report without a bundle, as its own code asks for it.
class RecordedReport {
  public:
    // Has the service make a report on the recording platform, of which nothing is run.
    RecordedReport();

    // Runs and reads the same, waits included, with nothing around it: no headers, no time-outs, no
    // guards.
    void Replay(int out) const;
    // What a user would write instead, for the device's shell: each step under `timeout`, between a
    // header and a footer. It has no way to reach the sensor hub.
    std::string Script() const;

  private:
    // As the recording platform has them: command TITLE SECONDS ARGV..., file TITLE - PATH, or
    // sleep SECONDS.
    using Step = std::vector<std::string>;
    std::vector<Step> steps_;
};
