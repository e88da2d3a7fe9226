#include "helper/HelperClient.h"

#include "foundation/Log.h"
#include "helper/AdapterError.h"
#include "helper/RequestOrigin.h"

#include <array>
#include <limits>

namespace kemvi {
namespace {

template <typename Failure>
[[noreturn]] void throwWith(foundation::ErrorOrigin origin, Failure error) {
    error.setOrigin(std::move(origin));
    throw error;
}

foundation::ErrorOrigin inState(std::string state) {
    foundation::ErrorOrigin origin;
    origin.state = std::move(state);
    return origin;
}

foundation::ErrorOrigin withCode(std::string code) {
    foundation::ErrorOrigin origin;
    origin.code = std::move(code);
    return origin;
}

} // namespace

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
HelperClient::LineData HelperClient::readLineData() {
    std::shared_ptr<foundation::ByteBuffer> line = buffers_->take();
    if (!output_.fileHandleForReading().readLine(*line))
        throwWith(inState(helperGoneState), AdapterError::protocolError("helper closed stdout"));
    return line;
}

void HelperClient::refuseUnlessAccepted(const HelperResponse& response, const std::string& id) {
    if (response.id != id)
        throwWith(inState(outOfStepState(id)),
                  AdapterError::protocolError("response id " + response.id + " did not match request id " + id));
    if (!response.ok && response.error)
        throwWith(withCode(response.error->code.value_or("")),
                  foundation::NSErrorException(response.error->posixError()));
    if (!response.ok)
        throw AdapterError::protocolError("unknown helper error");
}

// Once answers are out of step with requests they stay so. Threads that get here at once may count one state as two.
std::string HelperClient::outOfStepState(const std::string& id) {
    const std::int64_t number = std::stoll(id);
    if (lastOutOfStep_.exchange(number) != number - 1)
        outOfStepSince_ = number;
    return "answers are out of step since request " + std::to_string(outOfStepSince_);
}

// Needs requestLock_.
HelperClient::LineData HelperClient::answerTo(HelperRequest& request) {
    request.id = takeID();
    const HelperRequestEncoder::Line line = encoder_.encode(request);
    // A helper that has gone shows in the read below, so the result of the write tells nothing new. One that can answer
    // no more is to do nothing more either, and may have stopped to read.
    (void)input_.fileHandleForWriting().writeUnlessEnded(std::array{line.head, line.payload, line.tail},
                                                         output_.fileHandleForReading());
    return readLineData();
}

HelperResponse HelperClient::exchange(HelperRequest& request, const HelperResponse::ResultHandler& onResult) {
    return tellingRequest(request, [&] {
        std::lock_guard guard(requestLock_);
        const LineData line = answerTo(request);
        HelperResponse response = HelperResponse::decode(line, decoder_, onResult);
        refuseUnlessAccepted(response, request.id);
        return response;
    });
}

void HelperClient::readPayload(std::int64_t handle, std::int64_t offset, std::int64_t length,
                               const Base64Decoder& decode) {
    HelperRequest request;
    request.op = "read";
    request.handle = handle;
    request.offset = offset;
    request.length = length;
    tellingRequest(request, [&] {
        std::unique_lock guard(requestLock_);
        const LineData line = answerTo(request);
        {
            const HelperResponse response = HelperResponse::decodeTrustingBase64(line, decoder_);
            const bool isWanted = response.id == request.id && response.ok && response.dataBase64;
            // Decoded without the lock: the helper can work on the next request meanwhile.
            guard.unlock();
            if (isWanted && decode(response.dataBase64->text))
                return;
        }
        // Whatever is wrong, reading the whole line tells what comes first.
        foundation::JSONReader reader;
        const HelperResponse response = HelperResponse::decode(line, reader);
        refuseUnlessAccepted(response, request.id);
        if (!response.dataBase64 || !decode(response.dataBase64->text))
            throw AdapterError::protocolError("read response missing dataBase64");
    });
}

} // namespace kemvi
