// Which threads' messages reach the output while the process ends.
#ifndef KATD_MESSAGEGATE_H
#define KATD_MESSAGEGATE_H

namespace KATD_SPACE {

class MessageGate {
public:
    MessageGate() = delete;

    // From now on only the calling thread's messages pass; the other threads block at their next message. The
    // log's mutex is not fair: busy threads could keep the last message from being written in time.
    static void reserve();

    // From now on the calling thread's messages are dropped: it must not wait for a log that is locked.
    static void mute();

    // To be asked before each output: whether the calling thread's message passes. Does not return in a
    // thread that has to block.
    static bool pass();
};

}  // namespace KATD_SPACE

#endif
