// The host's bookkeeping pieces: call log with failure injection, handle
// store, suite registry, and the module loader.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <ostream>
#include <stdexcept>

#include "impl.h"

namespace thost {

thread_local Host::Impl* CurrentHost::current_ = nullptr;

void PrintTo(const HostCall& call, std::ostream* os) {
  *os << call.fn << "(" << call.args << ")";
  if (!call.via.empty()) *os << " via " << call.via;
}

std::string hex32(uint32_t v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%08X", v);
  return buf;
}

std::string fmtFloat(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%g", v);
  return buf;
}

std::string handleLabel(const Host::Impl& host, PF_Handle h) {
  if (!h) return "#0";
  const HandleStore::Block* b = host.handles.find(h);
  return b ? "#" + std::to_string(b->id) : "#?";
}

// ---------------------------------------------------------------- CallLog

void CallLog::record(const char* fn, std::string args, const char* via) {
  if (recording_) calls_.push_back(HostCall{fn, std::move(args), via});
}

void CallLog::copyFailures(const CallLog& from) {
  failures_ = from.failures_;
  for (auto& [fn, f] : failures_) f.seen = 0;
}

std::optional<PF_Err> CallLog::failure(const std::string& fn) {
  auto it = failures_.find(fn);
  if (it == failures_.end()) return std::nullopt;
  Failure& f = it->second;
  ++f.seen;
  if (f.nth == 0 || f.seen == f.nth) {
    ++fired_;
    return f.err;
  }
  return std::nullopt;
}

void CallLog::failCall(const std::string& fn, PF_Err err, int nth) {
  failures_[fn] = Failure{err, nth < 0 ? 0 : nth};
}

// ---------------------------------------------------------------- HandleStore

namespace {
// Beyond this the host answers like a host out of memory, rather than letting
// an absurd request reach the allocator.
constexpr A_u_longlong kMaxHandleSize = A_u_longlong{1} << 30;
}  // namespace

std::unique_ptr<char[]> HandleStore::allocate(A_u_longlong size) {
  if (size > kMaxHandleSize) return nullptr;
  // Zero-sized handles still get a block so that their master pointer is set.
  const size_t n = size == 0 ? 1 : static_cast<size_t>(size);
  std::unique_ptr<char[]> bytes(new (std::nothrow) char[n]);
  if (bytes) std::memset(bytes.get(), kFill, n);
  return bytes;
}

PF_Handle HandleStore::create(A_u_longlong size, bool byHost, const void* maker, long command) {
  std::unique_ptr<char[]> bytes = allocate(size);
  if (!bytes) return nullptr;
  auto lock = guard();
  auto block = std::make_unique<Block>();
  block->maker = maker;
  block->command = command;
  block->bytes = std::move(bytes);
  block->master = block->bytes.get();
  block->size = size;
  block->id = nextId_++;
  block->byHost = byHost;
  PF_Handle h = &block->master;
  blocks_.emplace(h, std::move(block));
  return h;
}

PF_Handle HandleStore::createEmpty(bool byHost) {
  auto lock = guard();
  auto block = std::make_unique<Block>();
  block->id = nextId_++;
  block->byHost = byHost;
  PF_Handle h = &block->master;
  blocks_.emplace(h, std::move(block));
  return h;
}

HandleStore::Block* HandleStore::find(PF_Handle h) {
  auto lock = guard();
  auto it = blocks_.find(h);
  return it == blocks_.end() ? nullptr : it->second.get();
}

const HandleStore::Block* HandleStore::find(PF_Handle h) const {
  auto lock = guard();
  auto it = blocks_.find(h);
  return it == blocks_.end() ? nullptr : it->second.get();
}

bool HandleStore::resize(Block& block, A_u_longlong newSize) {
  std::unique_ptr<char[]> bytes = allocate(newSize);
  if (!bytes) return false;
  auto lock = guard();
  if (block.bytes) {
    const A_u_longlong keep = newSize < block.size ? newSize : block.size;
    std::memcpy(bytes.get(), block.bytes.get(), static_cast<size_t>(keep));
  }
  // A new block every time: an effect that kept a pointer across a resize
  // reads freed memory, which the sanitizer build reports.
  block.bytes = std::move(bytes);
  block.master = block.bytes.get();
  block.size = newSize;
  return true;
}

void HandleStore::dispose(PF_Handle h) {
  auto lock = guard();
  blocks_.erase(h);
}

size_t HandleStore::count() const {
  auto lock = guard();
  return blocks_.size();
}

void HandleStore::clear() {
  auto lock = guard();
  blocks_.clear();
}

std::vector<HandleStore::Block*> HandleStore::live() {
  auto lock = guard();
  std::vector<Block*> out;
  for (auto& [h, b] : blocks_) out.push_back(b.get());
  std::sort(out.begin(), out.end(), [](const Block* a, const Block* b) { return a->id < b->id; });
  return out;
}

// ---------------------------------------------------------------- SuiteRegistry

SuiteRegistry::SuiteRegistry() {
  known_[{kPFPixelFormatSuite, 1}] = {pixelFormatSuite1(), true};
  known_[{kPFUtilitySuite, 4}] = {utilitySuite4(), true};
  known_[{kPFHandleSuite, 2}] = {handleSuite1(), false};
  known_[{kPFWorldSuite, 2}] = {worldSuite2(), false};
  known_[{kPFEffectCustomUISuite, 1}] = {customUISuite1(), false};
  known_[{kDRAWBOT_DrawSuite, 1}] = {drawSuite1(), false};
  known_[{kDRAWBOT_SupplierSuite, 1}] = {supplierSuite1(), false};
  known_[{kDRAWBOT_SurfaceSuite, 2}] = {surfaceSuite2(), false};
  known_[{kDRAWBOT_PathSuite, 1}] = {pathSuite1(), false};
  known_[{kPFParamUtilsSuite, 3}] = {paramUtilsSuite3(), false};
}

SuiteRegistry SuiteRegistry::forRender() const {
  SuiteRegistry copy(*this);
  copy.acquired_.clear();
  copy.released_.clear();
  copy.held_.clear();
  return copy;
}

SuiteRegistry::Answer SuiteRegistry::acquire(const std::string& name, int version, App app,
                                             const void** table) {
  const Key key{name, version};
  auto it = known_.find(key);
  if (it == known_.end()) return Answer::Unknown;
  if (removed_.count(key) || (it->second.premiereOnly && app != App::PremierePro))
    return Answer::Refused;
  *table = it->second.table;
  ++acquired_[key];
  ++held_[key];
  return Answer::Granted;
}

SuiteRegistry::Answer SuiteRegistry::release(const std::string& name, int version) {
  const Key key{name, version};
  if (!known_.count(key)) return Answer::Unknown;
  ++released_[key];
  auto it = held_.find(key);
  if (it == held_.end() || it->second == 0) return Answer::Refused;
  --it->second;
  return Answer::Granted;
}

int SuiteRegistry::acquired(const Key& key) const {
  auto it = acquired_.find(key);
  return it == acquired_.end() ? 0 : it->second;
}

int SuiteRegistry::released(const Key& key) const {
  auto it = released_.find(key);
  return it == released_.end() ? 0 : it->second;
}

void SuiteRegistry::clearCounts() {
  acquired_.clear();
  released_.clear();
}

std::map<SuiteRegistry::Key, int> SuiteRegistry::takeHeld() {
  std::map<Key, int> held;
  for (auto& [key, n] : held_)
    if (n > 0) held[key] = n;
  held_.clear();
  return held;
}

}  // namespace thost
