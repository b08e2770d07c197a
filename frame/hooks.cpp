#include "frame/hooks.h"

namespace tocra {

FunConvert2Addr_t FunConvert2Addr = nullptr;
FunInvalidBuff_t FunInvalidBuff = nullptr;

}  // namespace tocra

extern "C" void setIO2VAConverter(FunConvert2Addr_t fn) { tocra::FunConvert2Addr = fn; }

extern "C" void setGraphicBufferInvalidater(FunInvalidBuff_t fn) { tocra::FunInvalidBuff = fn; }
