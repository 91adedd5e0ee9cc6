// Where libAudio's log records go while a command runs. The library logs failures it
// recovers from (a format refused before another is tried), so its errors alone do not
// mean that the command failed: they are kept and shown only when it does.
//
//   default         error records kept in memory, shown on stderr when the operation fails
//                   (exit code 1; not on misuse)
//   -v / -vv        information (-vv: also debug and trace) records on stderr as they come
//   --log FILE      information (-vv: also debug) records written to FILE
//   LIBAUDIO_LOG    when set and neither of the options is given, the library logs as that
//                   variable says, untouched
#pragma once

#include "Commands.h"

#include <memory>
#include <string>

namespace audiodiag {

class LibraryLog {
public:
    LibraryLog();
    ~LibraryLog();
    LibraryLog(const LibraryLog&) = delete;
    LibraryLog& operator=(const LibraryLog&) = delete;

    // Installs the destinations the options ask for; false with why when the log file
    // cannot be written.
    bool open(const GlobalOptions& options, std::string& why);
    // After the command: a failed operation (EXIT_FAILED) shows the kept records.
    void finish(int exitCode);

private:
    class Sink;
    std::unique_ptr<Sink> m_sink;
};

} // namespace audiodiag
