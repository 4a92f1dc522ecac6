#include "runtime/cpu.h"

#include <cpuid.h>
#include <unistd.h>

#include <atomic>

namespace quorl {

namespace {

// Atomic only so that racing first callers stay free of a data race; there is deliberately no lock.
std::atomic<CpuFeatures*> gCpuFeatures{nullptr};

// The registers of an identification query, in the order CpuIdQuery writes them.
enum { EAX, EBX, ECX, EDX };

bool Bit(uint32_t word, int bit) {
  return ((word >> bit) & 1u) != 0;
}

}  // namespace

long CpuCount() {
  return sysconf(_SC_NPROCESSORS_ONLN);
}

void CpuIdQuery(uint32_t leaf, uint32_t subleaf, uint32_t out[4]) {
  unsigned int eax = 0, ebx = 0, ecx = 0, edx = 0;
  __cpuid_count(leaf, subleaf, eax, ebx, ecx, edx);
  out[0] = eax;
  out[1] = ebx;
  out[2] = ecx;
  out[3] = edx;
}

CpuFeatures DecodeCpuFeatures(const uint32_t leaf1[4], const uint32_t leaf7[4], const uint32_t extended1[4]) {
  CpuFeatures f{};  // every flag false
  f.MMX = Bit(leaf1[EDX], 23);
  f.x64 = Bit(extended1[EDX], 29);
  f.ABM = Bit(extended1[ECX], 5);
  f.RDRAND = Bit(leaf1[ECX], 30);
  f.BMI1 = Bit(leaf7[EBX], 3);
  f.BMI2 = Bit(leaf7[EBX], 8);
  f.ADX = Bit(leaf7[EBX], 19);
  f.PREFETCHWT1 = Bit(leaf7[ECX], 0);
  f.SSE = Bit(leaf1[EDX], 25);
  f.SSE2 = Bit(leaf1[EDX], 26);
  f.SSE3 = Bit(leaf1[ECX], 0);
  f.SSSE3 = Bit(leaf1[ECX], 9);
  f.SSE41 = Bit(leaf1[ECX], 19);
  f.SSE42 = Bit(leaf1[ECX], 20);
  f.SSE4a = Bit(extended1[ECX], 6);
  f.AES = Bit(leaf1[ECX], 25);
  f.SHA = Bit(leaf7[EBX], 29);
  f.AVX = Bit(leaf1[ECX], 28);
  f.XOP = Bit(extended1[ECX], 11);
  f.FMA3 = Bit(leaf1[ECX], 12);
  f.FMA4 = Bit(extended1[ECX], 16);
  f.AVX2 = Bit(leaf7[EBX], 5);
  f.AVX512F = Bit(leaf7[EBX], 16);
  f.AVX512CD = Bit(leaf7[EBX], 28);
  f.AVX512PF = Bit(leaf7[EBX], 26);
  f.AVX512ER = Bit(leaf7[EBX], 27);
  f.AVX512VL = Bit(leaf7[EBX], 31);
  f.AVX512BW = Bit(leaf7[EBX], 30);
  f.AVX512DQ = Bit(leaf7[EBX], 17);
  f.AVX512IFMA = Bit(leaf7[EBX], 21);
  f.AVX512VBMI = Bit(leaf7[ECX], 1);
  return f;
}

const CpuFeatures& CpuFeatures::instance() {
  if (CpuFeatures* made = gCpuFeatures.load(std::memory_order_acquire)) return *made;

  uint32_t regs[4];
  CpuIdQuery(0, 0, regs);
  const uint32_t highestStandard = regs[EAX];
  CpuIdQuery(0x80000000u, 0, regs);
  const uint32_t highestExtended = regs[EAX];

  uint32_t leaf1[4] = {0, 0, 0, 0};
  uint32_t leaf7[4] = {0, 0, 0, 0};
  uint32_t extended1[4] = {0, 0, 0, 0};
  if (highestStandard != 0) CpuIdQuery(1, 0, leaf1);
  if (highestStandard > 6) CpuIdQuery(7, 0, leaf7);
  if (highestExtended > 0x80000000u) CpuIdQuery(0x80000001u, 0, extended1);
  CpuFeatures* features = new CpuFeatures(DecodeCpuFeatures(leaf1, leaf7, extended1));

  // Intended: no guard; a racing first caller's record is simply never freed.
  gCpuFeatures.store(features, std::memory_order_release);
  return *features;
}

}  // namespace quorl
