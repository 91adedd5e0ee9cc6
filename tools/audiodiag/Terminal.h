// stderr as error messages, live log records and the progress line share it: a line
// written while a progress line is shown goes above it, and the progress line stays last.
#pragma once

#include <optional>
#include <string>

namespace audiodiag {

bool stderrIsTerminal();

// One line on stderr (the newline is added), above the progress line if one is shown.
void writeErrorLine(const std::string& line);

// A one-line progress indicator on stderr: what runs, a bar, the time done of the time
// asked and, when known, the level of the latest signal. Shown only when stderr is a
// terminal and the operation takes more than a second; the line is cleared when the
// object goes.
class Progress {
public:
    Progress(std::string what, double seconds);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    bool shown() const { return m_shown; }
    void update(double done, std::optional<double> levelDbfs = std::nullopt);

private:
    std::string m_what;
    double m_seconds;
    bool m_shown;
    long m_drawnTenths = -1;
};

} // namespace audiodiag
