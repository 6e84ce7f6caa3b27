// A readable, seekable byte stream for the BMP decoder: a stdio file or a
// block of memory.
#ifndef KEVRA_IMAGE_BYTE_SOURCE_H
#define KEVRA_IMAGE_BYTE_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace kevra {
namespace detail {

class ByteSource {
public:
    virtual ~ByteSource() = default;
    // Reads up to n bytes; returns the count actually read.
    virtual std::size_t read(void * dst, std::size_t n) = 0;
    virtual int64_t tell() = 0;
    virtual bool seek(int64_t pos) = 0;
    // Total size of the stream, or -1 when it cannot be known.
    virtual int64_t size() = 0;
};

class FileSource : public ByteSource {
public:
    explicit FileSource(std::FILE * f) : m_file(f)
    {
        const long here = std::ftell(f);
        if (here >= 0 && std::fseek(f, 0, SEEK_END) == 0) {
            const long end = std::ftell(f);
            if (end >= 0)
                m_size = end;
            std::fseek(f, here, SEEK_SET);
        }
    }
    std::size_t read(void * dst, std::size_t n) override { return std::fread(dst, 1, n, m_file); }
    int64_t tell() override { return std::ftell(m_file); }
    bool seek(int64_t pos) override
    {
        if (pos < 0 || pos > 0x7FFFFFFF)
            return false;
        return std::fseek(m_file, static_cast<long>(pos), SEEK_SET) == 0;
    }
    int64_t size() override { return m_size; }

private:
    std::FILE * m_file;
    int64_t m_size = -1;
};

class MemorySource : public ByteSource {
public:
    MemorySource(const void * data, std::size_t size)
        : m_data(static_cast<const uint8_t *>(data)), m_size(size)
    {
    }
    std::size_t read(void * dst, std::size_t n) override
    {
        const std::size_t left = m_pos < m_size ? m_size - m_pos : 0;
        if (n > left)
            n = left;
        if (n != 0)
            std::memcpy(dst, m_data + m_pos, n);
        m_pos += n;
        return n;
    }
    int64_t tell() override { return static_cast<int64_t>(m_pos); }
    bool seek(int64_t pos) override
    {
        if (pos < 0)
            return false;
        m_pos = static_cast<std::size_t>(pos);
        return true;
    }
    int64_t size() override { return static_cast<int64_t>(m_size); }

private:
    const uint8_t * m_data;
    std::size_t m_size;
    std::size_t m_pos = 0;
};

} // namespace detail
} // namespace kevra

#endif
