#ifndef KOVA_PLAY_LOG_OUTPUT_H
#define KOVA_PLAY_LOG_OUTPUT_H

class Console;

/// Where the log of the library goes while this object exists: to the console, or nowhere.
class LogOutput
{
public:
    /// @param verbosity  0: nothing is logged; 1: down to DEBUG; more: everything
    /// @param console    writes the lines; must outlive this object
    LogOutput(int verbosity, Console& console);
    /// Logs nothing from now on.
    ~LogOutput();
    LogOutput(const LogOutput&) = delete;
    LogOutput& operator=(const LogOutput&) = delete;
};

#endif
