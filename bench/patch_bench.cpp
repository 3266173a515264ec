// Decryption, compared with a bare loop of the same library calls over the same blocks.
#include <benchmark/benchmark.h>

#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <fstream>
#include <sstream>

#include "bench/bench_support.h"
#include "launcher/patch_file.h"
#include "platform/formats/patch_container.h"

namespace tessel::bench {
namespace {

using platform::kPatchBlockSize;

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

// Made by bench/table.py: a patch of the built-in key's pair, and the public half of it.
std::string PatchBytes() { return ReadFile(WorkPath("bench.tlx")); }
std::string PublicKey() { return ReadFile(WorkPath("public.pem")); }

void BareRsaLoop(benchmark::State& state) {
  const std::string patch = PatchBytes();
  const std::string key = PublicKey();
  unsigned char plain[kPatchBlockSize];
  for (auto _ : state) {
    for (std::size_t at = 0; at < patch.size(); at += kPatchBlockSize) {
      BIO* bio = BIO_new_mem_buf(key.data(), static_cast<int>(key.size()));
      RSA* rsa = PEM_read_bio_RSA_PUBKEY(bio, nullptr, nullptr, nullptr);
      BIO_free(bio);
      const int size = RSA_public_decrypt(static_cast<int>(kPatchBlockSize),
                                          reinterpret_cast<const unsigned char*>(patch.data() + at),
                                          plain, rsa, RSA_PKCS1_PADDING);
      RSA_free(rsa);
      if (size < 0) {
        state.SkipWithError("a block doesn't decrypt");
        return;
      }
    }
  }
}
BENCHMARK(BareRsaLoop)->Unit(benchmark::kMillisecond);

void DecryptPatchFile(benchmark::State& state) {
  const std::string patch = PatchBytes();
  std::string text;
  for (auto _ : state) {
    if (patch.empty() || DecryptPatch(patch, &text) != kPatchDecrypted) {
      state.SkipWithError("the patch doesn't decrypt");
      return;
    }
  }
}
BENCHMARK(DecryptPatchFile)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tessel::bench
