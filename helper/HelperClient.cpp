#include "helper/HelperClient.h"

#include "foundation/Log.h"
#include "helper/AdapterError.h"

#include <array>
#include <limits>

namespace kemvi {

HelperClient::HelperClient(std::string helperPath, std::map<std::string, std::string> environment)
    : helperPath_(std::move(helperPath)), environment_(std::move(environment)),
      buffers_(std::make_shared<BufferPool>()) {}

HelperClient::~HelperClient() = default;

void HelperClient::start() {
    for (const foundation::Pipe* pipe : {&input_, &output_})
        if (pipe->creationError() != 0)
            foundation::throwPosix(pipe->creationError());
    foundation::ChildProcess::Options options;
    options.executable = "/usr/bin/env";
    options.arguments = {"node", helperPath_};
    options.environment = environment_;
    options.standardInput = input_.fileHandleForReading().fileDescriptor();
    options.standardOutput = output_.fileHandleForWriting().fileDescriptor();
    process_.launch(options);
    // The child has its own copies now. As long as ours are open, neither side would see the other go.
    input_.fileHandleForReading().close();
    output_.fileHandleForWriting().close();
}

void HelperClient::stop() {
    input_.fileHandleForWriting().close();
    process_.waitUntilExit();
}

// Needs requestLock_.
std::string HelperClient::takeID() {
    std::string id = std::to_string(nextID_);
    if (nextID_ == std::numeric_limits<std::int64_t>::max())
        foundation::fatalError("the request counter has no numbers left");
    ++nextID_;
    return id;
}

// Needs requestLock_.
std::shared_ptr<const foundation::ByteBuffer> HelperClient::readLineData() {
    std::shared_ptr<foundation::ByteBuffer> line = buffers_->take();
    if (!output_.fileHandleForReading().readLine(*line))
        throw AdapterError::protocolError("helper closed stdout");
    return line;
}

HelperResponse HelperClient::exchange(HelperRequest request, const HelperResponse::ResultHandler& onResult) {
    std::lock_guard guard(requestLock_);
    request.id = takeID();
    const HelperRequestEncoder::Line line = encoder_.encode(request);
    // A helper that has gone shows in the read below, so the result of the write tells nothing new.
    (void)input_.fileHandleForWriting().write(std::array{line.head, line.payload, line.tail});
    HelperResponse response = HelperResponse::decode(readLineData(), decoder_, onResult);
    if (response.id != request.id)
        throw AdapterError::protocolError("response id " + response.id + " did not match request id " + request.id);
    if (!response.ok && response.error)
        throw foundation::NSErrorException(response.error->posixError());
    if (!response.ok)
        throw AdapterError::protocolError("unknown helper error");
    return response;
}

} // namespace kemvi
