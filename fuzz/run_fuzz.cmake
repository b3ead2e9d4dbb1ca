# Runs one fuzzer for a bounded time over a fresh copy of its seed corpus.
# Inputs: FUZZER, SEEDS, WORK, SECONDS, RUNS.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
if(EXISTS ${SEEDS})
  file(COPY ${SEEDS}/ DESTINATION ${WORK})
endif()
execute_process(
  COMMAND ${FUZZER} -max_total_time=${SECONDS} -runs=${RUNS} -timeout=10 -rss_limit_mb=2048
          -print_final_stats=1 -artifact_prefix=${WORK}/../ ${WORK}
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${FUZZER} failed (${rc}); crash inputs are beside ${WORK}")
endif()
