/// A file descriptor that is closed with its owner.
#ifndef KYBRIDGE_SIM_DESCRIPTOR_H
#define KYBRIDGE_SIM_DESCRIPTOR_H

#include <utility>

#include <unistd.h>

namespace sim {

class Descriptor {
public:
    explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    void reset(int descriptor = -1)
    {
        if (descriptor_ >= 0)
            close(descriptor_);
        descriptor_ = descriptor;
    }
    int get() const { return descriptor_; }
    int release() { return std::exchange(descriptor_, -1); } ///< to another owner

private:
    int descriptor_; ///< -1: none
};

} // namespace sim

#endif
