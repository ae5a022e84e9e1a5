#include "runtime/zmq/ImportedFunction.h"

#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace qor::socket {

namespace {

using Address = ElfW(Addr);
using Relocation = ElfW(Rela);

Address addressOf(const void* pointer) { return reinterpret_cast<Address>(pointer); }

constexpr Address symbolIndex(const Relocation& relocation) {
  return sizeof(Address) == 8 ? relocation.r_info >> 32U : relocation.r_info >> 8U;
}

}  // namespace

/// The loaded library that holds a function, as its own headers describe it.
class ImportedFunction::Library {
 public:
  explicit Library(const void* inside) : inside_(inside) { ::dl_iterate_phdr(&Library::visit, this); }

  std::vector<Entry> entriesOf(std::string_view name) const {
    std::vector<Entry> entries;
    if (dynamic_ == nullptr) return entries;
    collect(valueOf(DT_RELA), valueOf(DT_RELASZ), name, entries);
    if (valueOf(DT_PLTREL) == DT_RELA) collect(valueOf(DT_JMPREL), valueOf(DT_PLTRELSZ), name, entries);
    return entries;
  }

 private:
  static int visit(dl_phdr_info* info, std::size_t /*size*/, void* library) {
    return static_cast<Library*>(library)->take(*info) ? 1 : 0;
  }

  /// True when this is the library.
  bool take(const dl_phdr_info& info) {
    const auto* const begin = info.dlpi_phdr;
    const auto* const end = begin + info.dlpi_phnum;
    const Address inside = addressOf(inside_) - info.dlpi_addr;
    const bool isHere = std::any_of(begin, end, [inside](const auto& part) {
      return part.p_type == PT_LOAD && inside >= part.p_vaddr && inside - part.p_vaddr < part.p_memsz;
    });
    if (!isHere) return false;
    base_ = info.dlpi_addr;
    std::for_each(begin, end, [this](const auto& part) {
      if (part.p_type == PT_DYNAMIC) dynamic_ = at<ElfW(Dyn)>(base_ + part.p_vaddr);
      if (part.p_type == PT_GNU_RELRO) {
        protectedBegin_ = base_ + part.p_vaddr;
        protectedEnd_ = protectedBegin_ + part.p_memsz;
      }
    });
    return true;
  }

  template <class Object>
  Object* at(Address address) const {
    const auto* const anchor = static_cast<const char*>(inside_);
    const auto* const found = anchor + static_cast<std::ptrdiff_t>(address - addressOf(anchor));
    return reinterpret_cast<Object*>(const_cast<char*>(found));
  }

  Address valueOf(std::intptr_t tag) const {
    const auto* entry = dynamic_;
    while (entry->d_tag != DT_NULL && entry->d_tag != tag) ++entry;
    return entry->d_tag == DT_NULL ? 0 : entry->d_un.d_val;
  }

  /// Some dynamic linkers add the base address to the addresses of the dynamic section, others do not.
  Address absolute(Address address) const { return address < base_ ? base_ + address : address; }

  void collect(Address table, Address size, std::string_view name, std::vector<Entry>& entries) const {
    if (table == 0) return;
    const auto* const relocations = at<const Relocation>(absolute(table));
    const auto* const symbols = at<const ElfW(Sym)>(absolute(valueOf(DT_SYMTAB)));
    const auto* const names = at<const char>(absolute(valueOf(DT_STRTAB)));
    std::for_each(relocations, relocations + size / sizeof(Relocation), [&](const Relocation& relocation) {
      const Address symbol = symbolIndex(relocation);
      if (symbol == 0 || names + symbols[symbol].st_name != name) return;
      const Address address = base_ + relocation.r_offset;
      entries.push_back({.address = at<void*>(address),
                         .isReadOnly = address >= protectedBegin_ && address < protectedEnd_});
    });
  }

  const void* const inside_;
  Address base_ = 0;
  const ElfW(Dyn) * dynamic_ = nullptr;
  Address protectedBegin_ = 0;
  Address protectedEnd_ = 0;
};

ImportedFunction::ImportedFunction(const void* inside, std::string_view name)
    : entries_(Library(inside).entriesOf(name)) {}

bool ImportedFunction::redirectTo(void* function) const noexcept {
  return !entries_.empty() &&
         std::ranges::all_of(entries_, [function](const Entry& entry) { return set(entry, function); });
}

void ImportedFunction::replace(void* expected, void* function) const noexcept {
  for (const Entry& entry : entries_) {
    if (std::atomic_ref(*entry.address).load() == expected) set(entry, function);
  }
}

bool ImportedFunction::set(const Entry& entry, void* function) noexcept {
  const std::atomic_ref pointer(*entry.address);
  if (pointer.load() == function) return true;
  const auto pageSize = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  auto* const byte = reinterpret_cast<char*>(entry.address);
  char* const page = byte - addressOf(byte) % pageSize;
  if (entry.isReadOnly && ::mprotect(page, pageSize, PROT_READ | PROT_WRITE) != 0) return false;
  pointer.store(function);
  if (entry.isReadOnly) ::mprotect(page, pageSize, PROT_READ);
  return true;
}

}  // namespace qor::socket
