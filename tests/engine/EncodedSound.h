#pragma once

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <vector>

#include <clipworks/engine/Handles.h>
#include <clipworks/engine/output/SoundEncoder.h>

namespace clipworks::engine {

/// What one encoder makes of interleaved samples.
inline std::vector<Packet> encodedByOne(const std::vector<float>& sound, const SoundEncoderSettings& settings) {
  auto encoder = SoundEncoder::open(settings).value();
  const auto channels = static_cast<std::size_t>(settings.channels);
  std::vector<Packet> packets;
  const auto takeAll = [&] {
    while (auto packet = encoder.pull().value()) packets.push_back(std::move(*packet));
  };
  const std::size_t most = SoundEncoder::samplesPerPacket * channels;
  for (std::size_t at = 0; at < sound.size(); at += most) {
    const std::size_t count = std::min(most, sound.size() - at) / channels;
    if (!encoder.push(sound.data() + at, static_cast<int>(count)))
      throw std::runtime_error("the encoder refuses sound");
    takeAll();
  }
  if (!encoder.finish()) throw std::runtime_error("the encoder does not end");
  takeAll();
  return packets;
}

/// What is heard of it, interleaved, without the encoder's delay.
inline std::vector<float> decoded(const std::vector<Packet>& packets, const SoundEncoderSettings& settings) {
  const auto format = SoundEncoder::open(settings).value().format();
  const CodecContext decoder(avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_AAC)));
  avcodec_parameters_to_context(decoder.get(), format.get());
  if (avcodec_open2(decoder.get(), nullptr, nullptr) != 0) throw std::runtime_error("no decoder of AAC");
  std::vector<float> samples;
  const Frame frame = makeFrame();
  for (const auto& packet : packets) {
    if (avcodec_send_packet(decoder.get(), packet.get()) != 0) throw std::runtime_error("a packet cannot be decoded");
    while (avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
      for (int i = 0; i < frame->nb_samples; ++i) {
        for (int channel = 0; channel < settings.channels; ++channel) {
          samples.push_back(reinterpret_cast<const float*>(frame->extended_data[channel])[i]);
        }
      }
    }
  }
  samples.erase(samples.begin(), samples.begin() + SoundEncoder::samplesPerPacket * settings.channels);
  return samples;
}

}  // namespace clipworks::engine
