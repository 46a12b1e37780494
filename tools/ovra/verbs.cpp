// SPDX-License-Identifier: MIT
#include "tools/ovra/verb.h"

namespace tool {

std::span<const known_verb> known_verbs()
{
    static constexpr known_verb verbs[] = {
#define VERB(name) {#name, make_##name},
#include "tools/ovra/verbs.def"
#undef VERB
    };
    return verbs;
}

} // namespace tool
