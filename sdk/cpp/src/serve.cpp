#include "Notices.h"
#include "Session.h"
#include "Streams.h"

#include <csignal>
#include <cstdio>

namespace kemvi {

void kit::report(const std::string& text) {
    std::fprintf(stderr, "kemvi-helper: %s\n", text.c_str());
}

int serve(FileSystem& fileSystem) {
    std::signal(SIGPIPE, SIG_IGN); // nobody reading any more is an end like another
    startOfHelper();
    kit::Streams& streams = kit::takeStreams();
    kit::Session session(fileSystem, streams.answers, kit::report);
    foundation::ByteBuffer line;
    bool heard = true;
    while (heard && streams.requests.readLine(line))
        heard = session.answer(line.view());
    if (heard && line.size() > 0)
        kit::report("the input ended within a line");
    session.end();
    kit::endNotices();
    return 0;
}

} // namespace kemvi
