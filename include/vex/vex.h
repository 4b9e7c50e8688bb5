/**
 * @file vex.h
 * @ingroup frame
 * Every public header of the library.
 */
#ifndef VEX_VEX_H
#define VEX_VEX_H

#include <vex/alloc.h>
#include <vex/array.h>
#include <vex/bloom_filter.h>
#include <vex/blowfish.h>
#include <vex/callbacks.h>
#include <vex/cipher.h>
#include <vex/cloud_config.h>
#include <vex/crypt_stream.h>
#include <vex/digest.h>
#include <vex/dir.h>
#include <vex/encoding.h>
#include <vex/export.h>
#include <vex/file.h>
#include <vex/frame.h>
#include <vex/hash_tree.h>
#include <vex/http.h>
#include <vex/id_file.h>
#include <vex/inifile.h>
#include <vex/interface.h>
#include <vex/io.h>
#include <vex/iprange.h>
#include <vex/json.h>
#include <vex/list.h>
#include <vex/log.h>
#include <vex/log_file.h>
#include <vex/magic.h>
#include <vex/merge_sort.h>
#include <vex/net.h>
#include <vex/options.h>
#include <vex/os.h>
#include <vex/password.h>
#include <vex/path.h>
#include <vex/preallocator.h>
#include <vex/process.h>
#include <vex/random.h>
#include <vex/revision.h>
#include <vex/serialize.h>
#include <vex/set.h>
#include <vex/sqlite.h>
#include <vex/storage_http.h>
#include <vex/text.h>
#include <vex/uid.h>
#include <vex/values.h>
#include <vex/wide.h>

#endif
