#include "support/FormatTest.h"

#if !defined(_WIN32)

#include <csignal>
#include <cstdlib>

#include <sys/resource.h>

namespace kqtest {

int RunFfmpeg(const std::string& arguments) {
    return std::system(("ffmpeg -nostdin -v error -y " + arguments + " 2>&1").c_str());
}

FileSizeLimit::FileSizeLimit(size_t bytes) {
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    kept_[0] = limit.rlim_cur;
    kept_[1] = limit.rlim_max;
    limit.rlim_cur = bytes;
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
}

FileSizeLimit::~FileSizeLimit() {
    rlimit limit = {kept_[0], kept_[1]};
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, SIG_DFL);
}

}   // namespace kqtest

#endif
