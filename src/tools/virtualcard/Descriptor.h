#ifndef VIRTUALCARD_DESCRIPTOR_H
#define VIRTUALCARD_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

/// Owns one file descriptor, or none.
class Descriptor
{
public:
    Descriptor() = default;
    /// Takes ownership of the descriptor; a negative one means none.
    explicit Descriptor(int descriptor) : fd(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(fd, other.fd);
        return *this;
    }
    ~Descriptor()
    {
        if (fd >= 0) {
            ::close(fd);
        }
    }

    explicit operator bool() const { return fd >= 0; }
    int get() const { return fd; }

private:
    int fd = -1;
};

#endif
