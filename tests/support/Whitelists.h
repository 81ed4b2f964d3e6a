#pragma once

#include "platform/hub/TranscoderJobDesc.h"

#include <string>
#include <unordered_set>

namespace Support {

/// Keeps what the transcoder's configuration sets for the whole process, allows every program, and
/// puts all back at the end of a test.
class Whitelists {
public:
    using Desc = OstrandService::TranscoderJobDesc;
    using Texts = std::unordered_set<std::string>;

    Whitelists()
        : commands(Desc::cmd_whitelist), variables(Desc::env_whitelist),
          cookies(Desc::cookie_whitelist), cookieAware(Desc::cookieAwareCmds),
          replyType(Desc::secCmdDefaultReplyType) {
        Desc::cmd_whitelist = {"*"};
    }
    ~Whitelists() {
        Desc::cmd_whitelist = commands;
        Desc::env_whitelist = variables;
        Desc::cookie_whitelist = cookies;
        Desc::cookieAwareCmds = cookieAware;
        Desc::secCmdDefaultReplyType = replyType;
    }
    Whitelists(const Whitelists&) = delete;
    Whitelists& operator=(const Whitelists&) = delete;

private:
    const Texts commands;
    const Texts variables;
    const Texts cookies;
    const Texts cookieAware;
    const OstrandService::ReplyType replyType;
};

} // namespace Support
