# Tests that need a newer SQLite than the store. They fail with the SQLite 3.15 in SQLCipher 3.4.

# corvan_need_sqlite(VERSION TEST...): CTest leaves these tests out if SQLite is older than that. The tests for
# which the exact version is not known are listed with 3.16.
set(CORVAN_TEST_FILTER "")  # a GTEST_FILTER
function(corvan_need_sqlite version)
  if(SQLite3_VERSION AND SQLite3_VERSION VERSION_LESS version)
    list(JOIN ARGN ":" tests)
    message(STATUS "Tests left out, because they need SQLite ${version}: ${tests}")
    string(APPEND CORVAN_TEST_FILTER ":${tests}")
    string(REGEX REPLACE "^:" "-" CORVAN_TEST_FILTER "${CORVAN_TEST_FILTER}")
    set(CORVAN_TEST_FILTER "${CORVAN_TEST_FILTER}" PARENT_SCOPE)
  endif()
endfunction()

# Whether a text over the limit is bound, and what a damaged or foreign file causes.
corvan_need_sqlite(3.16
  DamageSurprises.HeldStatementOutlivesTheDeletedFile
  DamageSurprises.LogAndIndexAreKeptWhileAnotherConnectionIsOpen
  FileKinds.DirectoryInPlaceOfTheIndexMakesTheFileReadOnly
  LengthLimit.StoredTextOverTheLimitIsNotRead
  LengthLimit.TextUpToTheLimitIsBoundAndALongerOneIsNot
  OlderStore.AttachingRefusesATriggerDisguisedAsATable
  PastedText.TextWithoutAStatementIsPreparedToNull
  SilentLoss.*)
corvan_need_sqlite(3.16  # integrity_check tests CHECK constraints; pragma_table_info
  Lifecycle.FindingsAreJoined
  Schema.*Columns)
corvan_need_sqlite(3.25  # alter table ... rename column
  Lifecycle.FailedSchemaStatementIsLoggedAndOpeningSucceeds)
corvan_need_sqlite(3.32  # iif()
  Schema.*Indexes)
corvan_need_sqlite(3.35  # returning
  PastedText.AnyWholeStatementRuns)
corvan_need_sqlite(3.36  # the wording of plans
  *Plan*.EveryStatementHasTheExpectedPlan*
  *PlanOfOlderStore.*)
