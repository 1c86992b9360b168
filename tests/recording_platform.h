#pragma once

#include <map>
#include <string>
#include <vector>

// Stands in for the platform's libraries at link level and writes down what the service asks of
// them. It owns the clock as well: sleep(3), waits of whole seconds and property waits are written
// down and return at once.
struct RecordingPlatform {
    std::map<std::string, std::string> properties;
    // One line a request, its parts set apart by tabs, newlines as \n:
    //   command TITLE SECONDS|default ARGV...      file TITLE - PATH      build type?
    //   set KEY VALUE      wait KEY VALUE MILLISECONDS      sleep SECONDS
    // What goes to standard output and not into a report begins with "stdout ".
    std::vector<std::string> requests;
    std::vector<int> descriptors;   // of the other commands and files
    std::vector<std::string> logs;  // "PRIORITY TAG MESSAGE", a null tag as -, of all threads
    bool echo_titles = false;       // a command writes "[TITLE]\n" into its descriptor
    // What threads other than the test's own asked for, their log records among it as "log ...".
    std::vector<std::string> elsewhere;

    // Called when a command is run, with its title, on the thread that runs it.
    void (*on_command)(const std::string& title) = nullptr;
    // The same with each log record.
    void (*on_log)(const std::string& record) = nullptr;
    // Called before a property is read or set; it may put a value there, and asks for nothing else.
    void (*on_property)(const std::string& key, bool set) = nullptr;
};

// The one of the running test; cleared by assigning a new one while no other thread runs.
RecordingPlatform& ThePlatform();

// For code that runs on threads of its own, of which the records may come from several: those of
// one tag so far, and whether one is there now or within ten seconds.
std::vector<std::string> LogsOf(const std::string& tag);
bool WaitForLog(const std::string& record);
