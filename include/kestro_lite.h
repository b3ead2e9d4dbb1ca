/*
 * kestro_lite: the foundation library of the media engine. One include for
 * the whole C interface.
 */
#ifndef KESTRO_LITE_H
#define KESTRO_LITE_H

#include "zos_type.h"
#include "zos_sys.h"
#include "zos_cfg.h"
#include "zos_mem.h"
#include "zos_pool.h"
#include "zos_pmem.h"
#include "zos_bpool.h"
#include "zos_dbuf.h"
#include "zos_cbuf.h"
#include "zos_sbuf.h"
#include "zos_ubuf.h"
#include "zos_lock.h"
#include "zos_fmt.h"
#include "zos_str.h"
#include "zos_time.h"
#include "zos_print.h"
#include "zos_log.h"
#include "zos_dump.h"
#include "zos_trace.h"
#include "zos_dlist.h"
#include "zos_dbkt.h"
#include "zos_queue.h"
#include "zos_pqueue.h"
#include "zos_hash.h"
#include "zos_rbt.h"
#include "zos_omap.h"
#include "zucs.h"
#include "sms_pdu.h"
#include "zpand.h"
#include "zbase64.h"
#include "zbase32.h"
#include "zbase16.h"
#include "zcrc.h"
#include "zmd5.h"
#include "zsha1.h"
#include "zdes.h"
#include "zaka.h"
#include "zrandom.h"
#include "zuuid.h"
#include "zfile.h"

#endif /* KESTRO_LITE_H */
