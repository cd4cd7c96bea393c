// SPDX-License-Identifier: MIT
// kept_clients: a queue of handles, the oldest in front.
//
// Owns:    the handles and the queue.
// Thread:  main thread only.
#include "servd/servd_svc_proc/kept_clients.h"

#include "rpc/door.h"
#include "servd/checked_memory.h"

#include <cstdlib>

namespace {

struct KeptClient {
    CLIENT *client;
    KeptClient *newer;
};

KeptClient *oldest;
KeptClient *newest;
std::size_t count;

} // namespace

void KeepClient(CLIENT *client) {
    auto *kept = static_cast<KeptClient *>(CheckedCalloc(1, sizeof(KeptClient)));
    kept->client = client;
    (oldest == nullptr ? oldest : newest->newer) = kept;
    newest = kept;
    ++count;
    GiveUpWhatIsTooMany();
}

std::size_t KeptClients() { return count; }

void GiveUpOldestClient() {
    KeptClient *gone = oldest;
    oldest = gone->newer;
    --count;
    clnt_destroy(gone->client);
    std::free(gone);
}
