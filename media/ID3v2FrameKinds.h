// The kinds of ID3v2 frame and the parts of their bodies, in body order, as
// ID3v2Frame::read takes them apart. A new kind of frame is one more row.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ZELd {

// One part of a frame body and the field of ID3v2Frame it fills. What a field
// holds depends on the kind of frame:
//
//   encoding     the encoding byte of the strings that follow it
//   type         APIC, PIC: the picture type
//   url          W...: the URL; AENC/CRA, PRIV, UFID/UFI: the owner identifier;
//                APIC, GEOB/GEO: the MIME type; PIC: the image format;
//                COMM/COM, USLT/ULT and other U... frames: the language
//   description  TXXX/TXX, WXXX/WXX: the description; COMM/COM, USLT/ULT, APIC,
//                PIC, GEOB/GEO: the content description
//   text         T..., IPLS/IPL: the first value; COMM/COM: the comment;
//                USLT/ULT: the lyrics; other U... frames: the terms;
//                GEOB/GEO: the file name; UFID/UFI: the identifier as text
//   binary       APIC, PIC: the picture; AENC/CRA, PRIV, GEOB/GEO: the bytes
//                after the strings; UFID/UFI: the identifier; frames of no
//                text kind: the whole body
//   laterValues  T..., TXXX/TXX, IPLS/IPL: the values after text, which a
//                zero ends (ID3v2.4 holds several values so)
//
// The verbose report shows them as encoding[], type[], url[], description[],
// text[] and binary[]; they are stored in the ENCODING, TYPE_, URL,
// DESCRIPTION, TEXT_ and BINARY_ columns of ID3V2_FRAME (the frame INSERT of
// media/TagStore.cpp). laterValues is neither shown nor stored: it serves the
// tag properties (media/MP3Properties.h).
enum class FramePart : uint8_t {
    End,                       // no more parts: fills the unused places of a row
    EncodingByte,              // one byte -> encoding
    TypeByte,                  // one byte -> type
    DataLength,                // when the frame flags have the data length indicator: a 4-byte length
                               // that bounds RestToBinary; with fewer than 4 bytes left nothing more is read
    Latin1ToUrl,               // a Latin-1 string -> url
    LanguageToUrl,             // a language code -> url, only when one is there
    ImageFormatToUrl,          // 3 ASCII bytes, not trimmed -> url
    EncodedToDescription,      // a string in the frame's encoding -> description
    EncodedToText,             // a string in the frame's encoding -> text
    RestToBinary,              // what remains, no more than the data length when there is one -> binary
    IdentifierToBinaryAndText, // at most 64 bytes -> binary, and -> text when no more remain
    EncodedRestToValues,       // the strings that remain, in the frame's encoding -> laterValues
                               // (each trimmed, the empty ones left out)
};

constexpr size_t kMaxFrameParts = 6;
using FrameParts = std::array<FramePart, kMaxFrameParts>;

// How the ids of a kind are compared with the id of a frame.
enum class IdMatch : uint8_t {
    Whole,      // the whole id
    FirstThree, // its first three characters: TXX covers TXXX and every other 4-letter id beginning so
};

struct FrameKind {
    std::string_view id22; // the id in ID3v2.2 tags, empty when the kind has none
    std::string_view id23; // the id in ID3v2.3 and 2.4 tags, empty when the kind has none
    IdMatch match;
    FrameParts parts;
};

// Frames of no kind are read by the first byte of their id.
struct FrameFamily {
    char firstLetter;
    FrameParts parts;
};

namespace id3v2frames {

using enum FramePart;

inline constexpr FrameKind kFrameKinds[] = {
    {"CRA", "AENC", IdMatch::Whole, {Latin1ToUrl, RestToBinary}},
    {"", "APIC", IdMatch::Whole, {DataLength, EncodingByte, Latin1ToUrl, TypeByte, EncodedToDescription, RestToBinary}},
    {"PIC", "", IdMatch::Whole, {EncodingByte, ImageFormatToUrl, TypeByte, EncodedToDescription, RestToBinary}},
    {"COM", "COMM", IdMatch::Whole, {EncodingByte, LanguageToUrl, EncodedToDescription, EncodedToText}},
    {"GEO", "GEOB", IdMatch::Whole, {EncodingByte, Latin1ToUrl, EncodedToText, EncodedToDescription, RestToBinary}},
    {"", "PRIV", IdMatch::Whole, {Latin1ToUrl, RestToBinary}},
    {"ULT", "USLT", IdMatch::Whole, {EncodingByte, LanguageToUrl, EncodedToDescription, EncodedToText}},
    {"IPL", "IPLS", IdMatch::FirstThree, {EncodingByte, EncodedToText, EncodedRestToValues}},
    {"TXX", "TXXX", IdMatch::FirstThree, {EncodingByte, EncodedToDescription, EncodedToText, EncodedRestToValues}},
    {"UFI", "UFID", IdMatch::FirstThree, {Latin1ToUrl, IdentifierToBinaryAndText}},
    {"WXX", "WXXX", IdMatch::FirstThree, {EncodingByte, EncodedToDescription, Latin1ToUrl}},
};

// T text frames, U frames with a language, W URL frames. Every other first
// byte (A, C, G, I and P among them) keeps the whole body.
inline constexpr FrameFamily kFrameFamilies[] = {
    {'T', {EncodingByte, EncodedToText, EncodedRestToValues}},
    {'U', {EncodingByte, LanguageToUrl, EncodedToText}},
    {'W', {Latin1ToUrl}},
};

inline constexpr FrameParts kWholeBody = {RestToBinary};

} // namespace id3v2frames

} // namespace ZELd
