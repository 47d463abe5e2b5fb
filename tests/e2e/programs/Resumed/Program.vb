' VB's unstructured error handling: the compiler wraps the method in one try
' block whose handler leaves for a place inside that same block, to resume.
Module Program
    Function ResumeNext(text As String) As Integer
        On Error Resume Next
        Dim value As Integer = 10
        value = CInt(text)
        Return value + 1
    End Function

    Function GoToHandler(value As Integer) As String
        On Error GoTo Handler
        If value = 0 Then Throw New System.InvalidOperationException("zero")
        Return "fine " & value
Handler:
        Dim message As String = Err.Description
        Resume Done
Done:
        Return "handled " & message
    End Function

    Sub Main()
        System.Console.WriteLine("resumed " & ResumeNext("ten") & " " & ResumeNext("5"))
        System.Console.WriteLine(GoToHandler(0) & ", " & GoToHandler(7))
    End Sub
End Module
