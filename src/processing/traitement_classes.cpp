// Construction, destruction and run-time records of the three per-depth processing classes.
#include "kevra/traitement.h"

#include "kevra/lut.h"
#include "kevra/platform.h"

namespace kevra {

KEVRA_IMPLEMENT_DYNAMIC(CTraitementImg_8_Bpp, CTraitementImg)
KEVRA_IMPLEMENT_DYNAMIC(CTraitementImg_16_Bpp, CTraitementImg)
KEVRA_IMPLEMENT_DYNAMIC(CTraitementImg_24_Bpp, CTraitementImg)

namespace {

// Worker slots: one per processor, but never fewer than 2 (one or two processors give 2).
int worker_count()
{
    const unsigned processors = platform::processor_count();
    return processors < 3 ? 2 : static_cast<int>(processors);
}

// A zero-filled table of worker handles; null when it cannot be allocated (the object still
// works: no operation starts a worker).
void **new_worker_handles(int count)
{
    void **handles = detail::try_new_array<void *>(static_cast<std::size_t>(count));
    if (handles != nullptr)
        for (int i = 0; i < count; ++i)
            handles[i] = nullptr;
    return handles;
}

// No operation starts a worker, so every entry is still empty here; an entry that were set would
// be a system handle to close before the table goes.
void delete_worker_handles(void **&handles, int count)
{
    if (handles == nullptr)
        return;
    for (int i = 0; i < count; ++i)
        handles[i] = nullptr;
    delete[] handles;
    handles = nullptr;
}

} // namespace

// Each class installs a working table of its own depth; if that allocation fails the member stays
// null (tone operations then return false) and construction still succeeds.

CTraitementImg_8_Bpp::CTraitementImg_8_Bpp()
    : CTraitementImg(8), m_pLUT_8(nullptr), m_NbThreads(worker_count()),
      m_phThreads(new_worker_handles(m_NbThreads))
{
    m_pLUT_8 = detail::try_new<CLUT_8_Bpp>(nullptr);
    m_pLUT = m_pLUT_8;
}

CTraitementImg_8_Bpp::~CTraitementImg_8_Bpp()
{
    delete_worker_handles(m_phThreads, m_NbThreads);
    delete m_pLUT;
    m_pLUT = m_pLUT_8 = nullptr;
}

CTraitementImg_16_Bpp::CTraitementImg_16_Bpp()
    : CTraitementImg(16), m_pLUT_16(nullptr), m_NbThreads(worker_count()),
      m_phThreads(new_worker_handles(m_NbThreads))
{
    m_pLUT_16 = detail::try_new<CLUT_16_Bpp>(nullptr);
    m_pLUT = m_pLUT_16;
}

CTraitementImg_16_Bpp::~CTraitementImg_16_Bpp()
{
    delete_worker_handles(m_phThreads, m_NbThreads);
    delete m_pLUT;
    m_pLUT = m_pLUT_16 = nullptr;
}

CTraitementImg_24_Bpp::CTraitementImg_24_Bpp()
    : CTraitementImg(24), m_pLUT_24(nullptr), m_NbThreads(worker_count()),
      m_phThreads(new_worker_handles(m_NbThreads))
{
    m_pLUT_24 = detail::try_new<CLUT_24_Bpp>();
    m_pLUT = m_pLUT_24;
}

CTraitementImg_24_Bpp::~CTraitementImg_24_Bpp()
{
    delete_worker_handles(m_phThreads, m_NbThreads);
    delete m_pLUT;
    m_pLUT = m_pLUT_24 = nullptr;
}

} // namespace kevra
