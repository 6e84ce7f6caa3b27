// Test access to a filter's fields.
#ifndef KEVRA_TESTS_FILTERS_FILTRE_PROBE_H
#define KEVRA_TESTS_FILTERS_FILTRE_PROBE_H

#include "kevra/filtre.h"

namespace kevra::test {

class FiltreProbe : public CFiltre {
public:
    using CFiltre::CFiltre;
    bool separable() const { return m_bConvolutif != 0; }
    int nX() const { return m_nX; }
    int nY() const { return m_nY; }
    const float * full_table() const { return m_pTabFiltre; }
    float offset() const { return m_fOffset; }
    float factor() const { return m_fFacteur; }
    unsigned worker_count() const { return m_nNbThreads; }
    void * const * worker_table() const { return m_phThreads; }
};

} // namespace kevra::test

#endif
