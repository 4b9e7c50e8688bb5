#ifndef COUNTERD_SETTINGS_H
#define COUNTERD_SETTINGS_H

#include <string>

/// What the ini file says.
struct Settings {
    std::string socket, counter, pid_file, user, label;
};

/// Reads the file afresh and sets up the log as it says; false after one log line.
bool loadSettings(const char *ini, Settings *settings);

#endif
