#pragma once

#include <support/HandOffs.h>

namespace Platform::Testing {

/// For real tools: an empty current directory, which is their home too, and nobody's configuration.
class RealTools : public testing::Test {
protected:
    RealTools() { std::filesystem::current_path(folder_ / ""); }
    ~RealTools() override { std::filesystem::current_path("/"); }

    const OwnTemporaryDirectory folder_;
    const Variable home_{"HOME", folder_ / ""}, config_{"XDG_CONFIG_HOME", std::nullopt};
    const Variable system_{"GIT_CONFIG_NOSYSTEM", "1"}, global_{"GIT_CONFIG_GLOBAL", "/dev/null"};
    const Variable hg_{"HGRCPATH", ""}, hgUser_{"HGUSER", "me"};
    const Variable author_{"GIT_AUTHOR_NAME", "me"}, authorMail_{"GIT_AUTHOR_EMAIL", "m@e"};
    const Variable committer_{"GIT_COMMITTER_NAME", "me"}, mail_{"GIT_COMMITTER_EMAIL", "m@e"};
    const Variable visual_{"VISUAL", std::nullopt}, editor_{"EDITOR", std::nullopt};
    const Variable locale_{"LC_ALL", "C"};
};

} // namespace Platform::Testing
