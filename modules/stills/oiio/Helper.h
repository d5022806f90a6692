// The helper process as the module sees it: a keeper that is started once, and the workers that it forks.
//
// The program around the module is not ours: its signals, children and descriptors are left alone. No signal handler is
// set, no wait is done but for the keeper's own process, no descriptor survives into another program that it starts,
// and a socket whose other end is gone answers instead of raising a signal. The keeper ends when its socket does, which
// is when this process ends, however it does; its workers end with it.
#pragma once

#include <string>
#include <vector>

#include "modules/stills/Codec.h"
#include "modules/stills/oiio/Files.h"
#include "modules/stills/oiio/Wire.h"

namespace stills::oiio {

// One worker: its process and the socket to it. A fresh one is there after Helper::Fork.
struct Worker {
    int process = 0;
    Descriptor socket;

    explicit operator bool() const { return bool(socket); }
};

class Helper {
public:
    Helper() = default;
    ~Helper();
    Helper(const Helper&) = delete;
    Helper& operator=(const Helper&) = delete;

    // A new worker; without a socket, and with the reason, when there is none to be had.
    Worker Fork(Problem& problem);

    // Ends a worker, when it has not ended by itself. The result is how it ended, as waitpid has it, or -1 when that is
    // not known.
    int End(Worker& worker);

private:
    bool Start(Problem& problem);
    void Stop();
    bool Order(OrderKind kind, int process, int socket);
    int AwaitDeath(int process);

    Descriptor keeper_;
    int process_ = 0;
    std::vector<Notice> deaths_;   // that nobody has asked about yet
};

// The helper's program: beside the file of this module or one folder above; empty, with the reason, when it is at
// neither place.
std::string FindProgram(Problem& problem);

}   // namespace stills::oiio
