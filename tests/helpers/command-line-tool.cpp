// command-line-tool WHAT [TEXT]: "print" its arguments and the variable TEXT; "throw" an error that
// reads TEXT; "throw-number"; "base" does what the base class does.
#include <Platform/system/CommandLineTool.h>

#include <iostream>
#include <stdexcept>

namespace {

struct Goodbye {
    ~Goodbye() { std::cout << "goodbye\n"; }
} const goodbye;

class Tool : public Platform::CommandLineTool {
    void main(const std::vector<std::string>& arguments,
              const std::map<std::string, std::string>& environment) override {
        const std::string what = arguments.at(1);
        if (what == "throw") throw std::runtime_error(arguments.at(2));
        if (what == "throw-number") throw 7;
        for (const std::string& argument : arguments) std::cout << argument << '\n';
        if (const auto found = environment.find(arguments.at(2)); found != environment.end())
            std::cout << found->second << '\n';
    }
};

} // namespace

int main(int, char** arguments) {
    const bool isBase = arguments[1] == std::string("base");
    isBase ? Platform::CommandLineTool().run() : Tool().run();
    std::cout << "returned\n";
    return 3;
}
