// A process that has no file descriptors left.
#pragma once

#include <sys/resource.h>

namespace Support {

// As long as it lives no descriptor of `limit` or above can be had.
class FewDescriptors {
public:
#if defined(CAIRN_SANITIZED)
    static constexpr char const* impossible =
        "a sanitizer looks at objects through a pipe, and would find no descriptors for it";
#else
    static constexpr char const* impossible = nullptr; // else why not
#endif
    explicit FewDescriptors(rlim_t limit = 0) {
        ::getrlimit(RLIMIT_NOFILE, &usual_);
        rlimit const few{limit, usual_.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &few);
    }
    ~FewDescriptors() {
        ::setrlimit(RLIMIT_NOFILE, &usual_);
    }
    FewDescriptors(FewDescriptors const&) = delete;
    FewDescriptors& operator=(FewDescriptors const&) = delete;

private:
    rlimit usual_{};
};

} // namespace Support
