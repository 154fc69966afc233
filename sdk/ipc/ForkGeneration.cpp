#include "ipc/ForkGeneration.h"

#include <pthread.h>

#include <atomic>

namespace PalvonAuthManagerSDK {

namespace {

std::atomic<unsigned> g_generation{0};

void InChild() { g_generation.fetch_add(1, std::memory_order_relaxed); }

}  // namespace

unsigned ForkGeneration() {
  static const bool installed = pthread_atfork(nullptr, nullptr, InChild) == 0;
  (void)installed;
  return g_generation.load(std::memory_order_relaxed);
}

}  // namespace PalvonAuthManagerSDK
