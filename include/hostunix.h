/*
 * The host services as a whole: initialisation, and the headers of the services that most programs use.
 */
#ifndef TMQKCI_HOSTUNIX_H
#define TMQKCI_HOSTUNIX_H

#include "hostdebug.h"
#include "hostenv.h"
#include "hostfault.h"
#include "hostfile.h"
#include "hostsignal.h"
#include "hosttime.h"
#include "hostuser.h"
#include "kcitypes.h"
#include "utl.h"

TMQKCI_C_BEGIN

/*
 * For an embedding program, once at its start (later calls change nothing but noHalt): records the clocks' starting
 * values, takes the locale and the time zone from the environment, gives stdout its buffer, puts the login name into
 * $KS_LOGIN_NAME, unblocks every signal and clears noHalt. It installs no signal handler. Without it every service
 * works and obtains what it needs on first use. Not to be called while another thread reads the environment.
 */
TMQKCI_API void HostInit(void);

TMQKCI_C_END

#endif
