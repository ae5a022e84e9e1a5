#pragma once

#include <memory>
#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
}

namespace qor::engines {

struct FreeInput {
  void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct FreeOutput {
  void operator()(AVFormatContext* context) const { avformat_free_context(context); }
};
struct FreeCodec {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FreeFrame {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct FreePacket {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FreeGraph {
  void operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
};
struct FreeInOut {
  void operator()(AVFilterInOut* ends) const { avfilter_inout_free(&ends); }
};
struct FreeMemory {
  void operator()(void* memory) const { av_free(memory); }
};

using InputHandle = std::unique_ptr<AVFormatContext, FreeInput>;
using OutputHandle = std::unique_ptr<AVFormatContext, FreeOutput>;
using CodecHandle = std::unique_ptr<AVCodecContext, FreeCodec>;
using FrameHandle = std::unique_ptr<AVFrame, FreeFrame>;
using PacketHandle = std::unique_ptr<AVPacket, FreePacket>;
using GraphHandle = std::unique_ptr<AVFilterGraph, FreeGraph>;
using InOutHandle = std::unique_ptr<AVFilterInOut, FreeInOut>;

/// Checks the result of an FFmpeg allocation; throws std::bad_alloc if it is null.
template <class Handle>
Handle allocated(typename Handle::pointer pointer) {
  if (pointer == nullptr) {
    throw std::bad_alloc();
  }
  return Handle(pointer);
}

inline FrameHandle makeFrame() { return allocated<FrameHandle>(av_frame_alloc()); }
inline PacketHandle makePacket() { return allocated<PacketHandle>(av_packet_alloc()); }

}  // namespace qor::engines
