// clear-attribute NAME PATH...: removes an extended attribute from files and from whole trees.
#include <Platform/Platform.h>

#include <cerrno>
#include <iostream>
#include <system_error>

#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Platform::ExtendedAttributes;

constexpr const char* usage = "usage: clear-attribute [--] NAME PATH...\n";
constexpr const char* help = R"(
Removes the extended attribute NAME from each PATH and from everything below it. What does not have
it stays as it is. A PATH that is a symbolic link is followed; below it links to directories are not
entered. Directories that cannot be read are passed over.

Every failure is told in a line of its own on standard error, and the rest is done all the same.

Status: 0 if nothing failed, 1 if something did, 2 if the arguments make no sense.

    clear-attribute com.apple.quarantine ~/Downloads
)";

class ClearAttribute : public Platform::CommandLineTool {
public:
    int status() const { return status_; }

    void main(const std::vector<std::string>& arguments,
              const std::map<std::string, std::string>&) override {
        auto next = arguments.begin() + 1;
        if (next != arguments.end() && (*next == "--help" || *next == "-h")) {
            std::cout << usage << help;
            return;
        }
        if (next != arguments.end() && *next == "--") {
            ++next;
        } else if (next != arguments.end() && next->starts_with('-')) {
            std::cerr << "clear-attribute: unknown option " << *next << '\n' << usage;
            status_ = 2;
            return;
        }
        if (arguments.end() - next < 2) {
            std::cerr << usage;
            status_ = 2;
            return;
        }
        const Platform::ExtendedAttributeName name(*next);
        while (++next != arguments.end()) clear(name, *next);
        hideProgress();
        std::cout << "removed " << removed_ << " of " << visited_ << ", failed " << failed_
                  << std::endl;
        if (failed_ > 0 || !std::cout) status_ = 1;
    }

private:
    void clear(const Platform::ExtendedAttributeName& name, const fs::path& path) {
        // To the library a missing file is no failure, but this one was asked for.
        std::error_code error;
        if (fs::status(path, error).type() == fs::file_type::not_found || error)
            return fail(path,
                        error ? error : make_error_code(std::errc::no_such_file_or_directory));
        try {
            ExtendedAttributes(path).removeAttributeRecursive(
                name, ExtendedAttributes::Options(),
                [this](const ExtendedAttributes::Visit& visit) { count(visit); });
        } catch (const Platform::Errno& shortage) { // the walk could not go on
            fail(path, shortage.code());
        }
    }

    void count(const ExtendedAttributes::Visit& visit) {
        ++visited_;
        if (visit.removed()) ++removed_;
        // Gone in the moment between the question and the removal: it has no attribute either.
        if (visit.failure() != 0 && visit.failure() != ENOENT)
            fail(visit.path(), std::error_code(visit.failure(), std::system_category()));
        if (isWatched_ && visited_ % 1000 == 0) {
            std::cerr << "\r" << visited_ << " looked at, " << removed_ << " removed" << std::flush;
            isShown_ = true;
        }
    }

    void fail(const fs::path& path, const std::error_code& error) {
        ++failed_;
        hideProgress();
        // Names may hold anything, line ends too.
        std::cerr << "clear-attribute: " << Platform::singleLine(path.native()) << ": "
                  << error.message() << std::endl;
    }

    void hideProgress() {
        if (isShown_) std::cerr << "\r\033[K" << std::flush;
        isShown_ = false;
    }

    const bool isWatched_ = isatty(STDERR_FILENO) == 1;
    bool isShown_ = false;
    long visited_ = 0;
    long removed_ = 0;
    long failed_ = 0;
    int status_ = 0;
};

} // namespace

int main() {
    ClearAttribute tool;
    tool.run();
    return tool.status();
}
