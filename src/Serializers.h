#pragma once

#include <memory>

#include "CommandAndNotification.pb.h"
#include "tamb/IParametersCollection.h"
#include "tamb/MediaTime.h"

/// Between the framework's values and the wire's messages. Everything here keeps no state and may run on any
/// thread at once.
///
/// Five types of parameters cross the process boundary, without widening: Bool, Int64, Uint64, Double and
/// UTF8String. Writing a key of another type throws TAMBRuntimeError naming it. Descriptions do not travel,
/// and keys come back grouped by type, in that order. An empty pointer is written as a message without
/// fields, which is incomplete; an empty collection as a message whose `data` is present and empty.
namespace qor::multiprocess_communication::Serializers {

proto::ParametersCollectionPrototype ParametersCollectionPrototypeToProtoBuf(
    std::shared_ptr<const tamb::IParametersCollectionPrototype> prototype);

proto::ParametersCollectionInstance ParametersCollectionInstanceToProtoBuf(
    std::shared_ptr<const tamb::IParametersCollectionInstance> instance);

/// The same into a message that is used again and again: what it held is dropped, its memory is not. After an
/// exception it holds a part of the instance.
void ParametersCollectionInstanceToProtoBuf(
    const std::shared_ptr<const tamb::IParametersCollectionInstance>& instance,
    proto::ParametersCollectionInstance& message);

/// Entries of utf16StringParams are ignored. A key that occurs twice is for the framework to refuse: what it
/// throws is passed on.
std::shared_ptr<tamb::IParametersCollectionPrototype> ParametersCollectionPrototypeFromProtoBuf(
    const proto::ParametersCollectionPrototype& message);

/// Likewise; a value for a key that the message's prototype lacks is for the framework to refuse.
std::shared_ptr<tamb::IParametersCollectionInstance> ParametersCollectionInstanceFromProtoBuf(
    const proto::ParametersCollectionInstance& message);

/// The clock of a time does not travel.
void MediaTimeToProtoBuf(const tamb::MediaTime& time, proto::MediaTime& message);

/// The two members of the edit rate come back exchanged: what was written as 25/1 is read as 1/25. Both
/// channels that carry times rely on it.
tamb::MediaTime MediaTimeFromProtoBuf(const proto::MediaTime& message);

}  // namespace qor::multiprocess_communication::Serializers
