#pragma once

#include <map>
#include <string>
#include <vector>

// Stands in for the platform's libraries at link time and writes down what the service asks of
// them.
struct RecordingPlatform {
    std::map<std::string, std::string> properties;
    // One line a request, its parts set apart by tabs, newlines as \n:
    //   command TITLE SECONDS|default ARGV...      file TITLE - PATH      build type?
    std::vector<std::string> requests;
    std::vector<int> descriptors;   // of each command and file
    std::vector<std::string> logs;  // "PRIORITY TAG MESSAGE", a null tag as -
    bool echo_titles = false;       // a command writes "[TITLE]\n" into its descriptor
};

// The one of the running test; cleared by assigning a new one.
RecordingPlatform& ThePlatform();

// For code that runs on threads of its own, of which the records may come from several: those of
// one tag so far, and whether one is there now or within ten seconds.
std::vector<std::string> LogsOf(const std::string& tag);
bool WaitForLog(const std::string& record);
