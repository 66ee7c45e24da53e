#pragma once

#include <cstdint>
#include <filesystem>

// An AudioFileReader is one open recording from which the audio command reads its channel: it
// reports the file's stream format and length and delivers its frames as one channel of 32-bit
// floats at the file's own rate.
//
// Containers and codecs: whatever the audio layer's decoder reads, among them WAV, WAVEX, AIFF,
// FLAC, Ogg Vorbis, Ogg Opus, MP3, CAF, W64 and RF64, in 8, 16, 24 and 32-bit integer and 32 and
// 64-bit float samples. Several channels are reduced to one by averaging them frame by frame.
// Integer samples are scaled to [-1, 1).
//
// Status codes (int32_t; printed by the caller in decimal and hexadecimal):
//
//   code  name                                          meaning
//   ----  --------------------------------------------  ------------------------------------------
//      0  kAudioFileReaderNoError                       success
//      1  kAudioFileReaderErrorOpen                     nothing at the path, not a regular file
//                                                       (a directory, a device), empty, cut off
//                                                       inside its header, or not audio the
//                                                       decoder knows
//      2  kAudioFileReaderErrorInvalidReader            the reader is null
//      3  kAudioFileReaderErrorBadArgument              a required pointer argument is null
//      4  kAudioFileReaderErrorBadProperty              unknown property, or one that cannot be
//                                                       set (FileDataFormat, FileLengthFrames)
//      5  kAudioFileReaderErrorBadPropertySize          the data size is not the property's size
//                                                       (40 for the formats, 8 for the length)
//      6  kAudioFileReaderErrorUnsupportedClientFormat  the client format is not one channel of
//                                                       32-bit float linear PCM at the file's own
//                                                       sample rate; nothing is ever converted in
//                                                       rate or sample type behind the caller
//      7  kAudioFileReaderErrorNoClientFormat           read, or client format asked for, before
//                                                       a client format was set
//      8  kAudioFileReaderErrorBadBuffer                the buffer list is not one buffer of one
//                                                       channel, or frames were asked for with no
//                                                       data pointer or room for less than a frame
//      9  kAudioFileReaderErrorRead                     the decoder failed inside the file's data
//     10  kAudioFileReaderErrorSeek                     frame offset negative or past the end
//
// Lengths: the length is what is actually there. A header's frame count is trusted when its last
// frame can be sought and read; when it cannot, or the header gives none (a FLAC stream written
// to a pipe), the frames are counted by decoding the file once on opening. A file whose data
// stops early (cut off, or a header claiming more) is read up to where its data stops, and a read
// asking for more than is left delivers the rest with success.

// The layout of a stream of linear PCM samples (40 bytes): the record the audio command fills
// to describe what it wants and the reader fills to describe the file.
struct StreamFormat {
  double mSampleRate;          // frames per second
  uint32_t mFormatID;          // always kAudioFormatLinearPCM here
  uint32_t mFormatFlags;       // kAudioFormatFlag... values
  uint32_t mBytesPerPacket;    // mBytesPerFrame x mFramesPerPacket
  uint32_t mFramesPerPacket;   // 1 for linear PCM
  uint32_t mBytesPerFrame;     // bytes of one sample of every channel
  uint32_t mChannelsPerFrame;  // channels
  uint32_t mBitsPerChannel;    // significant bits of one sample
  uint32_t mReserved;          // 0
};
static_assert(sizeof(StreamFormat) == 40);

// One buffer of samples: for the client format, mDataByteSize / 4 floats at mData.
struct AudioBuffer {
  uint32_t mNumberChannels;
  uint32_t mDataByteSize;
  void* mData;
};

// The buffers one read fills; the client format has exactly one.
struct AudioBufferList {
  uint32_t mNumberBuffers;
  AudioBuffer mBuffers[1];
};

enum class AudioFileReaderProperty : uint32_t {
  FileDataFormat,    // get only: StreamFormat of the file itself (rate, channels, sample type)
  FileLengthFrames,  // get only: int64_t, frames at the file's own rate
  ClientDataFormat,  // set and get: StreamFormat that reads deliver
};

using AudioFileReaderRef = struct AudioFileReader*;

constexpr uint32_t kAudioFormatLinearPCM = 0x6C70636D;  // 'lpcm'

constexpr uint32_t kAudioFormatFlagIsFloat = 0x1;
constexpr uint32_t kAudioFormatFlagIsSignedInteger = 0x4;
constexpr uint32_t kAudioFormatFlagIsPacked = 0x8;
constexpr uint32_t kAudioFormatFlagIsAlignedHigh = 0x10;
constexpr uint32_t kAudioFormatFlagIsNonInterleaved = 0x20;

constexpr int32_t kAudioFileReaderNoError = 0;
constexpr int32_t kAudioFileReaderErrorOpen = 1;
constexpr int32_t kAudioFileReaderErrorInvalidReader = 2;
constexpr int32_t kAudioFileReaderErrorBadArgument = 3;
constexpr int32_t kAudioFileReaderErrorBadProperty = 4;
constexpr int32_t kAudioFileReaderErrorBadPropertySize = 5;
constexpr int32_t kAudioFileReaderErrorUnsupportedClientFormat = 6;
constexpr int32_t kAudioFileReaderErrorNoClientFormat = 7;
constexpr int32_t kAudioFileReaderErrorBadBuffer = 8;
constexpr int32_t kAudioFileReaderErrorRead = 9;
constexpr int32_t kAudioFileReaderErrorSeek = 10;

// Opens the recording at path. On success *outReader is the new reader, which the caller
// releases with AudioFileReaderDispose; on failure it is set to null and nothing stays open.
int32_t AudioFileReaderOpen(const std::filesystem::path& path, AudioFileReaderRef* outReader);

// Copies the property into outData. *ioDataSize must be the property's size on entry (40 for
// the formats, 8 for the length) and holds the size written on return.
//
// FileDataFormat describes the file as linear PCM: its rate and channel count; signed integer
// (or unsigned for 8-bit WAV) samples of 8, 16, 20, 24 or 32 bits, with the packed flag when the
// bits fill whole bytes and the aligned-high flag otherwise; 32 or 64-bit float; lossy streams
// (Vorbis, Opus, MP3) as the 32-bit floats they decode to. Sub-byte codecs (ADPCM, GSM, u-law,
// A-law) are described as the 16-bit samples they decode to.
int32_t AudioFileReaderGetProperty(AudioFileReaderRef reader, AudioFileReaderProperty property,
                                   uint32_t* ioDataSize, void* outData);

// Sets ClientDataFormat (dataSize 40). Accepted: mFormatID 'lpcm'; the float flag, with any of
// packed, aligned-high and non-interleaved besides and no other flag; 1 channel, 32 bits, 4 bytes
// per frame and per packet, 1 frame per packet; mSampleRate equal to the file's own rate.
int32_t AudioFileReaderSetProperty(AudioFileReaderRef reader, AudioFileReaderProperty property,
                                   uint32_t dataSize, const void* data);

// Positions the next read at frameOffset, counted from the file's first frame; offsets from 0
// up to and including the length are valid.
int32_t AudioFileReaderSeek(AudioFileReaderRef reader, int64_t frameOffset);

// Reads up to min(*ioNumberFrames, mBuffers[0].mDataByteSize / 4) frames as floats into
// mBuffers[0].mData, and sets *ioNumberFrames to the frames delivered and mDataByteSize to their
// byte size. At the end of the file it delivers 0 frames with success. Several channels are
// averaged through a small fixed scratch buffer, so no second copy of the request is made.
int32_t AudioFileReaderRead(AudioFileReaderRef reader, uint32_t* ioNumberFrames,
                            AudioBufferList* ioData);

// Closes the file and frees the reader.
int32_t AudioFileReaderDispose(AudioFileReaderRef reader);
