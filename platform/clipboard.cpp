// The in-process clipboard: one process-wide store of blocks by format, with
// the opening rules of a system clipboard (one thread holds it open at a time).
#include "kevra/clipboard.h"

#include <atomic>
#include <map>
#include <mutex>
#include <thread>

#include "kevra/dib.h"

namespace kevra {
namespace platform {
namespace {

class in_process final : public clipboard {
public:
    ~in_process() override { release_all(); }

    bool open() override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const std::thread::id me = std::this_thread::get_id();
        if (m_open && m_owner != me)
            return false;
        m_open = true;
        m_owner = me;
        return true;
    }

    bool empty() override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!held_by_caller())
            return false;
        release_all();
        return true;
    }

    bool set_data(unsigned int format, void *block) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!held_by_caller())
            return false;
        auto it = m_blocks.find(format);
        if (it != m_blocks.end()) {
            if (it->second != block)
                CDibRoot::FreeHandle(it->second);
            it->second = block;
        } else {
            m_blocks.emplace(format, block);
        }
        return true;
    }

    void *get_data(unsigned int format) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!held_by_caller())
            return nullptr;
        auto it = m_blocks.find(format);
        return it == m_blocks.end() ? nullptr : it->second;
    }

    bool is_format_available(unsigned int format) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_blocks.find(format);
        return it != m_blocks.end() && it->second != nullptr;
    }

    bool close() override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!held_by_caller())
            return false;
        m_open = false;
        return true;
    }

private:
    bool held_by_caller() const { return m_open && m_owner == std::this_thread::get_id(); }

    void release_all()
    {
        for (auto &entry : m_blocks)
            CDibRoot::FreeHandle(entry.second);
        m_blocks.clear();
    }

    std::mutex m_mutex;
    bool m_open = false;
    std::thread::id m_owner;
    std::map<unsigned int, void *> m_blocks;
};

std::atomic<clipboard *> g_replacement{nullptr};

} // namespace

clipboard &in_process_clipboard()
{
    static in_process instance;
    return instance;
}

clipboard &current_clipboard()
{
    clipboard *replacement = g_replacement.load(std::memory_order_acquire);
    return replacement != nullptr ? *replacement : in_process_clipboard();
}

clipboard *set_clipboard(clipboard *replacement)
{
    return g_replacement.exchange(replacement, std::memory_order_acq_rel);
}

} // namespace platform
} // namespace kevra
