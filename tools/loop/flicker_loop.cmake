# flicker_loop_program(<target>): links a program against the closed-loop
# runner with everything under the manager (host platform, open algorithm)
# and wraps sem_post / sem_wait so that the runner can wait for the manager's
# worker to finish each analysis. Included by every folder that builds such a
# program; safe to include more than once.
include_guard(GLOBAL)

function(flicker_loop_program target)
  # The manager comes before what sits under it, so the static archives
  # resolve in one pass whatever CMake appends for the loop library.
  target_link_libraries(${target} PRIVATE flicker_loop flicker_mgr flicker_host_platform
                                          flicker_open_algo)
  target_link_options(${target} PRIVATE -Wl,--wrap=sem_post -Wl,--wrap=sem_wait)
endfunction()
