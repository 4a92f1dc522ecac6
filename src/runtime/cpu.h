// Processor facts: the number of processors online and the feature bits of the x86-64 identification
// query.
//
// CpuFeatures::instance makes its record on first use and never frees it. It takes no lock, so two
// first callers on different threads may both build a record (one of them leaks); the bits they read
// are the same. Everything else is stateless.
#pragma once

#include <cstdint>

namespace quorl {

// sysconf of the processors online; -1 when the system cannot tell.
long CpuCount();

// Runs the identification query for `leaf` and `subleaf`; `out` receives EAX, EBX, ECX, EDX.
void CpuIdQuery(uint32_t leaf, uint32_t subleaf, uint32_t out[4]);

// Feature bits as the processor reports them. Whether the operating system saves the wide registers is
// not asked, so AVX and its kin may read true where the system does not support them.
struct CpuFeatures {
  bool MMX;
  bool x64;
  bool ABM;
  bool RDRAND;
  bool BMI1;
  bool BMI2;
  bool ADX;
  bool PREFETCHWT1;
  bool SSE;
  bool SSE2;
  bool SSE3;
  bool SSSE3;
  bool SSE41;
  bool SSE42;
  bool SSE4a;
  bool AES;
  bool SHA;
  bool AVX;
  bool XOP;
  bool FMA3;
  bool FMA4;
  bool AVX2;
  bool AVX512F;
  bool AVX512CD;
  bool AVX512PF;
  bool AVX512ER;
  bool AVX512VL;
  bool AVX512BW;
  bool AVX512DQ;
  bool AVX512IFMA;
  bool AVX512VBMI;
  // Three trailing fields that no query sets; they stay false.
  bool reserved1;
  bool reserved2;
  bool reserved3;

  // The process's record, filled on first use.
  static const CpuFeatures& instance();
};

// The flags that leaves 1 and 7 (subleaf 0) and extended leaf 0x80000001 give, each as EAX, EBX, ECX,
// EDX; a leaf the processor lacks is passed as zeros.
CpuFeatures DecodeCpuFeatures(const uint32_t leaf1[4], const uint32_t leaf7[4], const uint32_t extended1[4]);

static_assert(sizeof(CpuFeatures) == 34, "CpuFeatures is 34 flags");

}  // namespace quorl
