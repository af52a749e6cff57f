// IVeLCmdInterfaceSharedMemory: a text channel between two processes through one named block of shared
// memory. One process creates the block, the other opens it by name; either writes one text at a time and
// the other reads it. The channel has no lock and no signalling: the two sides agree by their own means
// (named events, for example) on who writes and when the other reads. The order of the operations is fixed.
#pragma once

#include "velwin32.h"

#include <string>

class IVeLCmdInterfaceSharedMemory
{
public:
    virtual ~IVeLCmdInterfaceSharedMemory() {}
    // The name given at construction.
    virtual std::wstring GetSharedMemoryName() = 0;
    // Whether the block was created or opened (the mapping handle is valid).
    virtual bool IsSharedMemoryAvailable() const = 0;
    // The text last written (empty after a clear); the block is left as it is, so a second read gives
    // the same text. False, with a traced reason, when the block is unavailable or cannot be mapped.
    virtual bool ReadDataFromMemory(std::wstring& text) const = 0;
    // Replaces the text in the block; a text whose UTF-8 form has 65536 bytes or more is refused whole and
    // the block keeps its old text. A text with a zero character is written only up to it.
    virtual bool WriteDataToMemory(const std::wstring& text) const = 0;
    // Sets the whole block to zero, so a read then yields an empty text.
    virtual bool ClearDataMemory() const = 0;
};
