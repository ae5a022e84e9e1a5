#include "tests/unit/multiprocess/WrappedCalls.h"

#include <thread>
#include <utility>

#include "qor/socket/Socket.h"
#include "qor/utils/MessageFormatter.h"
#include "tamb/ElementFactory.h"

namespace qor::multiprocess_communication {

namespace {

WrappedCalls*& current() {
  static WrappedCalls* wrapped = nullptr;
  return wrapped;
}

void enter(const char* function) {
  if (current() != nullptr && current()->before) current()->before(function);
}

}  // namespace

WrappedCalls::WrappedCalls() { current() = this; }
WrappedCalls::~WrappedCalls() { current() = nullptr; }

using Prototype = std::shared_ptr<tamb::IParametersCollectionPrototype>;
using ConstPrototype = std::shared_ptr<const tamb::IParametersCollectionPrototype>;
using Instance = std::shared_ptr<tamb::IParametersCollectionInstance>;
using ConstInstance = std::shared_ptr<const tamb::IParametersCollectionInstance>;
using Factory = std::shared_ptr<tamb::IElementFactory>;

// The linker gives this program's calls of a function to the first of each two, and to the second what the
// first calls.
Prototype wrappedPrototype() asm("__wrap__ZN4tamb35CreateParametersCollectionPrototypeEv");
Prototype realPrototype() asm("__real__ZN4tamb35CreateParametersCollectionPrototypeEv");
Instance wrappedInstance(ConstPrototype prototype) asm(
    "__wrap__ZN4tamb34CreateParametersCollectionInstanceESt10shared_ptrI"
    "KNS_30IParametersCollectionPrototypeEE");
Instance realInstance(ConstPrototype prototype) asm(
    "__real__ZN4tamb34CreateParametersCollectionInstanceESt10shared_ptrI"
    "KNS_30IParametersCollectionPrototypeEE");
ConstPrototype wrappedEntryPrototype() asm("__wrap__ZN4tamb25GetRegistryEntryPrototypeEv");
ConstPrototype realEntryPrototype() asm("__real__ZN4tamb25GetRegistryEntryPrototypeEv");
std::string wrappedCoreId(std::string version) asm(
    "__wrap__ZN4tamb21GetTAMBCoreIdInternalENSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
std::string realCoreId(std::string version) asm(
    "__real__ZN4tamb21GetTAMBCoreIdInternalENSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
void wrappedRegister(std::string name, std::string coreId, Factory factory, ConstInstance entry) asm(
    "__wrap__ZN4tamb15RegisterFactoryENSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES5_"
    "St10shared_ptrINS_15IElementFactoryEES6_IKNS_29IParametersCollectionInstanceEE");
void realRegister(std::string name, std::string coreId, Factory factory, ConstInstance entry) asm(
    "__real__ZN4tamb15RegisterFactoryENSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES5_"
    "St10shared_ptrINS_15IElementFactoryEES6_IKNS_29IParametersCollectionInstanceEE");
// A member gets its object as a function gets its first argument.
std::string wrappedFormat(const utils::IMessageFormatter* formatter, const std::string& text) asm(
    "__wrap__ZNK3qor5utils17IMessageFormatter13formatMessageERKNSt7__cxx1112basic_stringI"
    "cSt11char_traitsIcESaIcEEE");
std::string realFormat(const utils::IMessageFormatter* formatter, const std::string& text) asm(
    "__real__ZNK3qor5utils17IMessageFormatter13formatMessageERKNSt7__cxx1112basic_stringI"
    "cSt11char_traitsIcESaIcEEE");
int wrappedReceive(socket::Socket* socket, google::protobuf::Message* message, unsigned int sizeBound) asm(
    "__wrap__ZN3qor6socket6Socket15receiveProtoBufEPN6google8protobuf7MessageEj");
int realReceive(socket::Socket* socket, google::protobuf::Message* message, unsigned int sizeBound) asm(
    "__real__ZN3qor6socket6Socket15receiveProtoBufEPN6google8protobuf7MessageEj");
void wrappedStart(std::thread* thread, void* state, void (*dependency)()) asm(
    "__wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE");
void realStart(std::thread* thread, void* state, void (*dependency)()) asm(
    "__real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE");
// A constructor gets its object as a member does, and the enumeration as its number.
void wrappedSocket(socket::Socket* socket, const std::string& name, int closePolicy) asm(
    "__wrap__ZN3qor6socket6SocketC1ERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
    "NS0_11ClosePolicy11ClosePolicyE");
void realSocket(socket::Socket* socket, const std::string& name, int closePolicy) asm(
    "__real__ZN3qor6socket6SocketC1ERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
    "NS0_11ClosePolicy11ClosePolicyE");

Prototype wrappedPrototype() {
  enter("CreateParametersCollectionPrototype");
  return realPrototype();
}

Instance wrappedInstance(ConstPrototype prototype) {
  enter("CreateParametersCollectionInstance");
  if (current() != nullptr && current()->instance) return current()->instance;
  return realInstance(std::move(prototype));
}

ConstPrototype wrappedEntryPrototype() {
  enter("GetRegistryEntryPrototype");
  return realEntryPrototype();
}

std::string wrappedCoreId(std::string version) {
  enter("GetTAMBCoreIdInternal");
  return realCoreId(std::move(version));
}

void wrappedSocket(socket::Socket* socket, const std::string& name, int closePolicy) {
  enter("qor::socket::Socket");
  realSocket(socket, name, closePolicy);
}

void wrappedStart(std::thread* thread, void* state, void (*dependency)()) {
  enter("std::thread");
  realStart(thread, state, dependency);
}

void wrappedRegister(std::string name, std::string coreId, Factory factory, ConstInstance entry) {
  enter("RegisterFactory");
  realRegister(std::move(name), std::move(coreId), std::move(factory), std::move(entry));
}

int wrappedReceive(socket::Socket* socket, google::protobuf::Message* message, unsigned int sizeBound) {
  const int result = realReceive(socket, message, sizeBound);
  if (current() != nullptr && current()->afterReceive) current()->afterReceive(*message);
  return result;
}

std::string wrappedFormat(const utils::IMessageFormatter* formatter, const std::string& text) {
  if (current() == nullptr || !current()->decorate) return realFormat(formatter, text);
  return current()->decorate(formatter->messageHeader(), text);
}

}  // namespace qor::multiprocess_communication
