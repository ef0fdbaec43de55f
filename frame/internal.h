// internal.h - operations the library uses between its subsystems but does
// not export (hidden from the shared library's symbol table).
#pragma once

#include <cstdint>

extern "C" {

// Lowers the flow table's maximum index to its highest used row (127 when
// no row is used). Returns 0.
int32_t qos_intDb_UpdateSfDbMaxIndex(void);

// Lowers the classifier table's maximum index to its highest used row (319
// when no row is used). Returns 0.
int32_t qos_intDb_UpdateClsfDbMaxIndex(void);

// Sends one outcome event with a 4-byte payload to component 32; 0 when the
// event service took it.
int32_t qos_intDb_SendTaEvent(uint32_t payload, uint32_t event);

}  // extern "C"
