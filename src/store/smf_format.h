// The numbers of a store file on disk. They can never change; docs/store-format.md describes the file.
#pragma once

#include <cstddef>
#include <cstdint>

// Number codes of header records: below 199.
enum SMF_Number : uint8_t {
    SMF_FileVersion = 1,
    SMF_FileFlags = 2,    // bit 0 key and value directory, bit 1 the writer's `compressed` option
    SMF_StreamMode = 10,  // 1 zlib blocks, 2 LZ4 blocks, others plain blocks
    SMF_BlockSize = 12,   // bytes
    SMF_BlockCount = 13,  // entries of the block table
    SMF_Table32 = 14,     // older layout: file offset of a table of 32-bit entries
    SMF_PairNext = 20,    // key and value chain: next record, -1 ends it
    SMF_MainStream =
        60,  // 60, 61: file offset of the main stream's header; its presence is the current layout
    SMF_StreamLength = 62,  // 62, 63: logical length in bytes
    SMF_Table64 = 64,       // 64, 65: file offset of the block table
    SMF_NextTable = 66,     // 66, 67: next table header, 0 ends the chain
    SMF_TableRows = 68,     // 68, 69
    SMF_NextField = 70,     // 70, 71: in a table header the first field, in a field header the next one
    SMF_DataStream = 72,    // 72, 73: header of the data stream
    SMF_JumpStream = 74,    // 74, 75: header of the jump stream
    SMF_FieldRows = 76,     // 76, 77
    SMF_OldOptions = 100,   // older layout: head of the table's option chain
    SMF_OldRows = 101,      // 101, 102
    SMF_OldFieldCount = 103,
    SMF_OldDataStream = 104,  // -1 none
    SMF_OldJumpStream = 105,  // -1 none
    SMF_OldNextTable = 106,
    SMF_ZeroInterval = 107,  // records between two restart points
    SMF_OldDirectory = 108,
    SMF_TableFlags = 109,  // bit 0: zlib streams, else LZ4
    SMF_TableBlockSize = 110,
    SMF_OldField = 130,  // older layout: first field header, next field header
    SMF_FieldType = 131,
    SMF_OldTags = 132,
    SMF_FieldZero = 136,  // zero interval of the field, at least 10
    SMF_Key = 199,
};

// String codes: 200 to 254.
enum SMF_Text : uint8_t {
    SMF_PairKey = 200,
    SMF_PairValue = 201,
    SMF_TableName = 210,
    SMF_TableOptions = 211,
    SMF_FieldName = 220,
    SMF_CodecKey = 221,
    SMF_FieldTags = 222,
    SMF_CodecExtra = 223,
    SMF_RecordEnd = 255,
};

enum SMF_Mode : int32_t { SMF_ModeZlib = 1, SMF_ModeLz4 = 2 };

// Field types, as SMF_FieldType holds them. 1 and 2 have no class.
enum SMF_Type : int32_t {
    SMF_TypeGeneric = -1,  // of handles only: no type expected
    SMF_TypeString = 0,
    SMF_TypeI32 = 3,
    SMF_TypeI64 = 4,
    SMF_TypeDate = 5,
    SMF_TypeTime = 6,
    SMF_TypeFlag = 7,
    SMF_TypeTree = 8,
    SMF_TypeDateTime = 9,
    SMF_TypeString10 = 10,
};

inline constexpr uint32_t SMF_MainBlockSize = 0x100000;
inline constexpr uint32_t SMF_JumpBlockSize = 0x10000;
inline constexpr uint32_t SMF_LeastBlockSize = 0x1000;
inline constexpr uint32_t SMF_LeastZeroInterval = 10;
inline constexpr size_t SMF_MaxFields = 128;
inline constexpr size_t SMF_MaxTables = 0x400;
inline constexpr uint32_t SMF_TextLimit = 0x40000000;  // a length-prefixed text is shorter
// Larger block sizes are not read: one block must fit into memory.
inline constexpr uint32_t SMF_MaxBlockSize = 0x40000000;
