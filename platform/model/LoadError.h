// The error of a machine description that cannot be used. The message names the source,
// the field as a JSON path and the problem:
//   laptop.json: endpoints[2].flow: expected "render" or "capture", got "sideways"
#pragma once

#include <stdexcept>
#include <string>

namespace model {

class LoadError : public std::runtime_error {
public:
    LoadError(const std::string& source, const std::string& path, const std::string& problem)
        : std::runtime_error(compose(source, path, problem)) {}

private:
    static std::string compose(const std::string& source, const std::string& path,
                               const std::string& problem) {
        return source + ": " + (path.empty() ? "" : path + ": ") + problem;
    }
};

} // namespace model
