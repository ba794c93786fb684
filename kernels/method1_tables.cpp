// The five table accessors of method 1: the record has four table slots per
// group; a channel beyond them has no table.
#include "kernels/kernels.h"
#include "transform/method1.h"

namespace tintra3 {

const uint16_t* GetInputTable8(const Method1Transform* t, uint32_t channel) {
    if (channel >= 4) return nullptr;
    return U16(t->useAltInputTables ? t->altInputTable256[channel] : t->inputTable256[channel]);
}

const uint16_t* GetInputTable10(const Method1Transform* t, uint32_t channel) {
    if (channel >= 4) return nullptr;
    return U16(t->useAltInputTables ? t->altInputTable1024[channel] : t->inputTable1024[channel]);
}

const uint16_t* GetInputTable16(const Method1Transform* t, uint32_t channel) {
    if (channel >= 4) return nullptr;
    return U16(t->useAltInputTables ? t->altInputTable4096[channel] : t->inputTable4096[channel]);
}

const uint8_t* GetOutputTable8(const Method1Transform* t, uint32_t channel) {
    if (channel >= 4) return nullptr;
    return Bytes(t->useAltOutputTables ? t->altOutputTable8[channel] : t->outputTable8[channel]);
}

const uint16_t* GetOutputTable16(const Method1Transform* t, uint32_t channel) {
    if (channel >= 4) return nullptr;
    return U16(t->useAltOutputTables ? t->altOutputTable16[channel] : t->outputTable16[channel]);
}

}  // namespace tintra3
