#include <Platform/command/detail/PipeEnd.h>

#include "Children.h"

namespace Platform {

using detail::PipeEnd;

TEST(PipeEnd, IsNotWritableJustBecauseTheSystemCannotTell) {
    const NothingLeft check;
    Pipe pipe = makePipe();
    PipeEnd end(std::move(pipe.writing), detail::WatchEvent::writable);
    EXPECT_TRUE(end.isWritable());
    const std::string text(PipeEnd::usualCapacity, 'x');
    for (auto bytes = std::as_bytes(std::span(text)); end.write(bytes) == PipeEnd::Progress::made;
         bytes = std::as_bytes(std::span(text))) {
    }
    EXPECT_FALSE(end.isWritable());
    for (const int number : {EAGAIN, ENOMEM}) {
        const Faults fault(Faults::failing(SystemCall::poll, number));
        EXPECT_FALSE(end.isWritable()) << number;
    }
    pipe.reading.reset();
    EXPECT_TRUE(end.isWritable()) << "a write gets to an error";
}

} // namespace Platform
