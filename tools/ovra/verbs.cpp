// SPDX-License-Identifier: MIT
#include "tools/command/verb.h"

namespace tool {

// Makes the verb of that name; defined in its file.
#define VERB(name) std::unique_ptr<verb> make_##name();
#include "tools/ovra/verbs.def"
#undef VERB

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
