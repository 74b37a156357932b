// SPDX-License-Identifier: MIT
// The packets of one connection, from the first to the end of it.
#pragma once

#include "platform/Pipe.h"
#include "server/Session.h"

namespace server {

// Answers the requests that come over `connection` until the client is gone, the server is
// stopped, or a packet is not one of the protocol or takes its time: a client that has begun a
// packet, or is being sent one, may pause for `stallMilliseconds`. The store is closed then.
// Throws nothing.
void ServeConnection(platform::PipeConnection* connection, SessionRules* rules,
                     uint32_t stallMilliseconds);

}  // namespace server
