// Scratch rows of the streaming schedules: a few rows of floats, never a plane.
#ifndef KEVRA_CORE_ROW_RING_H
#define KEVRA_CORE_ROW_RING_H

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "kevra/platform.h"

namespace kevra::detail {

// Rows of `stride` floats from the one allocation helper.
class RowStore {
public:
    bool allocate(int64_t rows, int64_t stride)
    {
        stride_ = stride;
        if (rows <= 0 || stride <= 0)
            return true;
        const uint64_t n = uint64_t(rows) * uint64_t(stride);
        if (n > SIZE_MAX / sizeof(float))
            return false;
        data_.reset(try_new_array<float>(static_cast<std::size_t>(n)));
        return data_ != nullptr;
    }
    float * row(int64_t i) const { return data_.get() + i * stride_; }

private:
    std::unique_ptr<float[]> data_;
    int64_t stride_ = 0;
};

// Input rows of a vertical pass: row r in slot r mod `slots`. A slot holds a row of its own
// storage or points at a row kept elsewhere; the caller sizes the ring so that a slot is reused
// only once its row can no longer be read.
class RowRing {
public:
    bool allocate(int64_t slots, int64_t stride, bool own_storage)
    {
        k_ = slots;
        ptr_.reset(try_new_array<const float *>(static_cast<std::size_t>(k_)));
        id_.reset(try_new_array<int64_t>(static_cast<std::size_t>(k_)));
        if (ptr_ == nullptr || id_ == nullptr)
            return false;
        for (int64_t i = 0; i < k_; ++i)
            id_[i] = -1;
        return !own_storage || store_.allocate(k_, stride);
    }
    float * storage(int64_t r) const { return store_.row(r % k_); }
    void set(int64_t r, const float * p)
    {
        ptr_[r % k_] = p;
        id_[r % k_] = r;
    }
    const float * row(int64_t r) const
    {
        assert(id_[r % k_] == r);
        return ptr_[r % k_];
    }

private:
    int64_t k_ = 1;
    std::unique_ptr<const float *[]> ptr_;
    std::unique_ptr<int64_t[]> id_;
    RowStore store_;
};

} // namespace kevra::detail

#endif
