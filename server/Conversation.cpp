// SPDX-License-Identifier: MIT
#include "server/Conversation.h"

#include <algorithm>
#include <utility>

#include "Shared/logging/Logger.h"
#include "server/Session.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "server/Conversation"

namespace server {

using platform::Error;
using platform::PipeConnection;
namespace log = Varnhold::Hob::Detail;

namespace {

constexpr uint32_t kFirstPiece = 1u << 16;  // a packet's room grows as its bytes arrive

// Acts as the client for the time of one request.
class AsClient {
  public:
    explicit AsClient(PipeConnection* connection)
        : connection_(connection), error_(connection->Impersonate()) {}
    ~AsClient() { End(); }
    AsClient(const AsClient&) = delete;
    AsClient& operator=(const AsClient&) = delete;
    Error Result() const { return error_; }
    // What the end of it gives, which is looked at once.
    Error End() {
        return connection_ == nullptr || error_ != 0
                   ? platform::kErrorSuccess
                   : std::exchange(connection_, nullptr)->EndImpersonation();
    }

  private:
    PipeConnection* connection_;
    Error error_;
};

// The size a packet announces is only a claim: memory is taken as the bytes come.
Error ReadPayload(PipeConnection* connection, uint32_t size, uint32_t stall,
                  std::vector<uint8_t>* payload) {
    payload->clear();
    while (payload->size() < size) {
        const size_t have = payload->size();
        const size_t piece = std::min<size_t>(size - have, std::max<size_t>(have, kFirstPiece));
        payload->resize(have + piece);
        const Error error =
            connection->Read(payload->data() + have, static_cast<uint32_t>(piece), stall);
        if (error != 0) return error;
    }
    return platform::kErrorSuccess;
}

Error WritePacket(PipeConnection* connection, const std::vector<uint8_t>& payload, uint32_t stall) {
    const auto size = static_cast<uint32_t>(payload.size());
    ipc::WireWriter packet(ipc::kPacketMagic);
    packet.U32(size + ipc::kPacketHeaderSize).Bytes(payload.data(), size);
    return connection->Write(packet.Payload().data(),
                             static_cast<uint32_t>(packet.Payload().size()), stall);
}

// False when the connection is to end.
bool ServeOne(PipeConnection* connection, Session* session, uint32_t stall) {
    constexpr const char* kName = "ServeOne";
    uint8_t header[ipc::kPacketHeaderSize];
    // Between packets a client may take its time; within one it may not.
    Error error = connection->Read(header, 1, platform::kForever);
    if (error == 0) error = connection->Read(header + 1, sizeof header - 1, stall);
    if (error != 0) {
        const bool usual =
            error == platform::kErrorBrokenPipe || error == platform::kErrorOperationAborted;
        if (!usual) ZRFS_LOG(log::kWarning, kName, "Reading a packet failed [{}]", error);
        return false;
    }
    ipc::WireReader fields(header);
    const uint32_t magic = fields.U32();
    const uint32_t total = fields.U32();
    if (magic != ipc::kPacketMagic || total <= ipc::kPacketHeaderSize ||
        total > ipc::kLargestPacket) {
        ZRFS_LOG(log::kWarning, kName, "Packet refused: magic [{}] size [{}]", magic, total);
        return false;
    }
    std::vector<uint8_t> request;
    error = ReadPayload(connection, total - ipc::kPacketHeaderSize, stall, &request);
    if (error != 0) {
        ZRFS_LOG(log::kWarning, kName, "A packet was not finished [{}]", error);
        return false;
    }
    std::optional<std::vector<uint8_t>> reply;
    {
        AsClient identity(connection);
        if (identity.Result() != 0) {
            ZRFS_LOG(log::kError, kName, "The client's identity cannot be taken [{}]",
                     identity.Result());
            return false;
        }
        reply = session->Answer(request);
        error = identity.End();
    }
    if (error != 0) {
        ZRFS_LOG(log::kError, kName, "The client's identity cannot be laid down [{}]", error);
        return false;
    }
    if (!reply) {
        ZRFS_LOG(log::kWarning, kName, "Malformed request of [{}] bytes", request.size());
        return false;
    }
    error = WritePacket(connection, *reply, stall);
    if (error != 0) ZRFS_LOG(log::kWarning, kName, "Sending a reply failed [{}]", error);
    return error == 0;
}

// Nothing is written to a store in the server's own name.
void CloseAsClient(PipeConnection* connection, Session* session) {
    const AsClient identity(connection);
    if (identity.Result() != 0) {
        ZRFS_LOG(log::kError, "CloseAsClient", "A store stays open [{}]", identity.Result());
        session->Abandon();
    }
    try {
        session->Close();
    } catch (const std::exception& error) {
        ZRFS_LOG(log::kError, "CloseAsClient", "A store stays open: {}", error.what());
        session->Abandon();
    }
}

}  // namespace

void ServeConnection(PipeConnection* connection, SessionRules* rules, uint32_t stallMilliseconds) {
    constexpr const char* kName = "ServeConnection";
    ZRFS_LOG(log::kInformation, kName, "Client connected");
    Session session(rules);
    try {
        while (ServeOne(connection, &session, stallMilliseconds)) {
        }
    } catch (const std::exception& error) {
        ZRFS_LOG(log::kError, kName, "Connection given up: {}", error.what());
    }
    CloseAsClient(connection, &session);
    ZRFS_LOG(log::kInformation, kName, "Client gone");
}

}  // namespace server
